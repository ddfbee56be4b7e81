#pragma once

#include "ui/SymbolIcons.h"

#include <QImage>
#include <QWidget>

// The cover-art square with rounded corners: a decoded image, an application's icon, or a
// placeholder symbol drawn in the palette's faint text colour on a faint wash.
class ArtView : public QWidget {
    Q_OBJECT
public:
    explicit ArtView(QWidget* parent = nullptr);

    void showImage(const QImage& image);
    void showIcon(const QIcon& icon);
    void showSymbol(const SymbolIcons::Icon& symbol);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage m_image;
    QIcon m_icon;
    SymbolIcons::Icon m_symbol;
};
