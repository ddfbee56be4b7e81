#pragma once

#include "desktop/ColorScheme.h"

#include <QObject>
#include <QPalette>

// Gives the whole application, the tray panel and the overlay included, the light or dark
// look the desktop asks for. The desktop's own palette stays whenever it already is what
// the desktop asks for, or when the desktop states nothing; otherwise one of two palettes
// of this application's own takes its place.
class Appearance : public QObject {
    Q_OBJECT
public:
    explicit Appearance(QObject* parent = nullptr);

    void apply(ColorScheme::Preference preference);
    // Whether the application's palette is now a dark one.
    bool isDark() const;

    // This application's palettes: text, links, selection, placeholders and disabled
    // controls stay legible on their backgrounds.
    static QPalette palette(bool dark);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The desktop's palette, as last seen while this application's own was not in place.
    QPalette m_desktop;
    bool m_ownInPlace = false;
};
