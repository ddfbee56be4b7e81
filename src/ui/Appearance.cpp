#include "ui/Appearance.h"

#include <QApplication>
#include <QEvent>

namespace {

bool isDarkPalette(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

struct Colors {
    QColor window, base, alternateBase, text, button, light, midlight, mid, dark, shadow, highlight,
        highlightedText, link, linkVisited, placeholder, disabledText, disabledHighlight, toolTip;
};

// Text on its backgrounds stays at 4.5:1 or more; placeholders and disabled text, which
// only need to be found, at about 3:1.
const Colors darkColors{
    .window = QColor(0x2a, 0x2c, 0x30),
    .base = QColor(0x1f, 0x21, 0x24),
    .alternateBase = QColor(0x26, 0x28, 0x2c),
    .text = QColor(0xec, 0xee, 0xf1),
    .button = QColor(0x35, 0x38, 0x3d),
    .light = QColor(0x4a, 0x4e, 0x54),
    .midlight = QColor(0x3f, 0x42, 0x48),
    .mid = QColor(0x24, 0x26, 0x29),
    .dark = QColor(0x18, 0x19, 0x1c),
    .shadow = QColor(0x0c, 0x0d, 0x0e),
    .highlight = QColor(0x2f, 0x6f, 0xb3),
    .highlightedText = QColor(0xff, 0xff, 0xff),
    .link = QColor(0x7c, 0xb7, 0xff),
    .linkVisited = QColor(0xc3, 0x9d, 0xff),
    .placeholder = QColor(0x9a, 0xa0, 0xa8),
    .disabledText = QColor(0x82, 0x88, 0x90),
    .disabledHighlight = QColor(0x45, 0x49, 0x50),
    .toolTip = QColor(0x35, 0x38, 0x3d),
};

const Colors lightColors{
    .window = QColor(0xf3, 0xf4, 0xf6),
    .base = QColor(0xff, 0xff, 0xff),
    .alternateBase = QColor(0xf6, 0xf7, 0xf9),
    .text = QColor(0x1c, 0x1e, 0x21),
    .button = QColor(0xe9, 0xeb, 0xee),
    .light = QColor(0xff, 0xff, 0xff),
    .midlight = QColor(0xf0, 0xf1, 0xf3),
    .mid = QColor(0xc4, 0xc8, 0xcd),
    .dark = QColor(0x9a, 0x9f, 0xa6),
    .shadow = QColor(0x6b, 0x70, 0x77),
    .highlight = QColor(0x1f, 0x66, 0xb8),
    .highlightedText = QColor(0xff, 0xff, 0xff),
    .link = QColor(0x0b, 0x57, 0xa8),
    .linkVisited = QColor(0x6a, 0x3d, 0xa0),
    .placeholder = QColor(0x6e, 0x74, 0x7c),
    .disabledText = QColor(0x85, 0x8b, 0x92),
    .disabledHighlight = QColor(0xc4, 0xc8, 0xcd),
    .toolTip = QColor(0xff, 0xff, 0xff),
};

} // namespace

Appearance::Appearance(QObject* parent)
    : QObject(parent)
    , m_desktop(QGuiApplication::palette())
{
    QCoreApplication::instance()->installEventFilter(this);
}

void Appearance::apply(ColorScheme::Preference preference)
{
    const bool desktopFits =
        preference == ColorScheme::Preference::None ||
        isDarkPalette(m_desktop) == (preference == ColorScheme::Preference::Dark);
    if (desktopFits) {
        if (m_ownInPlace) {
            m_ownInPlace = false;
            // An empty palette hands every colour back to the desktop's, so its later
            // changes come through again.
            QApplication::setPalette(QPalette());
        }
        return;
    }
    m_ownInPlace = true;
    QApplication::setPalette(palette(preference == ColorScheme::Preference::Dark));
}

bool Appearance::isDark() const
{
    return isDarkPalette(QGuiApplication::palette());
}

bool Appearance::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == QCoreApplication::instance() &&
        event->type() == QEvent::ApplicationPaletteChange && !m_ownInPlace)
        m_desktop = QGuiApplication::palette();
    return QObject::eventFilter(watched, event);
}

QPalette Appearance::palette(bool dark)
{
    const Colors& c = dark ? darkColors : lightColors;
    QPalette p(c.button, c.window);
    const auto setAll = [&p](QPalette::ColorRole role, const QColor& color) {
        p.setColor(QPalette::All, role, color);
    };
    setAll(QPalette::Window, c.window);
    setAll(QPalette::WindowText, c.text);
    setAll(QPalette::Base, c.base);
    setAll(QPalette::AlternateBase, c.alternateBase);
    setAll(QPalette::Text, c.text);
    setAll(QPalette::Button, c.button);
    setAll(QPalette::ButtonText, c.text);
    setAll(QPalette::BrightText, dark ? QColor(0xff, 0x8a, 0x80) : QColor(0xb3, 0x26, 0x1e));
    setAll(QPalette::Light, c.light);
    setAll(QPalette::Midlight, c.midlight);
    setAll(QPalette::Mid, c.mid);
    setAll(QPalette::Dark, c.dark);
    setAll(QPalette::Shadow, c.shadow);
    setAll(QPalette::Highlight, c.highlight);
    setAll(QPalette::HighlightedText, c.highlightedText);
    setAll(QPalette::Link, c.link);
    setAll(QPalette::LinkVisited, c.linkVisited);
    setAll(QPalette::PlaceholderText, c.placeholder);
    setAll(QPalette::ToolTipBase, c.toolTip);
    setAll(QPalette::ToolTipText, c.text);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, c.disabledText);
    p.setColor(QPalette::Disabled, QPalette::Highlight, c.disabledHighlight);
    p.setColor(QPalette::Disabled, QPalette::HighlightedText, c.disabledText);
    return p;
}
