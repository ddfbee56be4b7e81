#pragma once

#include "ui/panel/PanelLook.h"

#include <QLabel>

// One line of text that never wraps: too long a text first tightens its letter spacing a
// little and is then cut with an ellipsis. Screen readers get the whole text. The colour is a
// shade of the palette, looked up when painted, so a palette change needs nothing else.
class ElidedLabel : public QLabel {
    Q_OBJECT
public:
    explicit ElidedLabel(panel_look::Shade shade, QWidget* parent = nullptr);

    void setFullText(const QString& text);
    const QString& fullText() const { return m_text; }
    void setShade(panel_look::Shade shade);
    panel_look::Shade shade() const { return m_shade; }
    // Whether the text was cut to fit, for tests and tooltips.
    bool isElided() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QFont fittedFont() const;

    QString m_text;
    panel_look::Shade m_shade;
};
