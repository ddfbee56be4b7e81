#pragma once

#include <QColor>
#include <QHash>
#include <QIcon>
#include <QPixmap>
#include <QString>

// The desktop's equivalents of the overlay's and the panel's symbol images: the freedesktop icon
// names, the monochrome "-symbolic" variant first, and a shipped SVG when the theme has neither.
// Icons are cached by symbol name.
class SymbolIcons {
public:
    struct Icon {
        QIcon icon;
        // Monochrome icons are drawn in the requested colour; a full-colour theme icon
        // keeps its own colours.
        bool tintable = false;
        bool isNull() const { return icon.isNull(); }
    };

    // The icon for a symbol name; a null Icon for a name without an equivalent.
    Icon symbol(const QString& name);

    // The icon rendered for `size` logical pixels at `devicePixelRatio`, tinted with
    // `color` when it is monochrome (otherwise faded by the colour's alpha).
    static QPixmap render(const Icon& icon, QSize size, qreal devicePixelRatio,
                          const QColor& color);

private:
    static Icon lookUp(const QString& name);

    QHash<QString, Icon> m_cache;
};
