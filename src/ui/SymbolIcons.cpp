#include "ui/SymbolIcons.h"

#include <QPainter>

#include <initializer_list>

namespace {

struct Equivalent {
    const char* symbol;
    std::initializer_list<const char*> themeNames;
    const char* shipped;
};

const Equivalent equivalents[] = {
    {"speaker.wave.3.fill", {"audio-volume-high"}, ":/velotide/icons/audio-volume-high.svg"},
    {"speaker.slash.fill", {"audio-volume-muted"}, ":/velotide/icons/audio-volume-muted.svg"},
    {"speaker.badge.exclamationmark.fill",
     {"audio-volume-muted-blocking", "dialog-warning"},
     ":/velotide/icons/audio-volume-muted-blocking.svg"},
    {"play.fill", {"media-playback-start"}, ":/velotide/icons/media-playback-start.svg"},
    {"pause.fill", {"media-playback-pause"}, ":/velotide/icons/media-playback-pause.svg"},
    {"backward.fill", {"media-skip-backward"}, ":/velotide/icons/media-skip-backward.svg"},
    {"forward.fill", {"media-skip-forward"}, ":/velotide/icons/media-skip-forward.svg"},
    {"hifispeaker.fill", {"audio-speakers"}, ":/velotide/icons/audio-speakers.svg"},
    {"music.note", {"audio-x-generic"}, ":/velotide/icons/audio-x-generic.svg"},
    {"tv.fill", {"video-display"}, ":/velotide/icons/video-display.svg"},
    {"moon.fill", {"weather-clear-night"}, ":/velotide/icons/weather-clear-night.svg"},
    // No theme has a speech bubble of this meaning ("user-available" is a presence dot).
    {"captions.bubble.fill", {}, ":/velotide/icons/speech-bubble.svg"},
    {"keyboard.fill", {"input-keyboard"}, ":/velotide/icons/input-keyboard.svg"},
    {"slider.horizontal.3", {"configure", "preferences-system"}, ":/velotide/icons/configure.svg"},
    {"power", {"system-shutdown"}, ":/velotide/icons/system-shutdown.svg"},
    {"checkmark.circle", {"emblem-ok"}, ":/velotide/icons/emblem-ok.svg"},
};

} // namespace

SymbolIcons::Icon SymbolIcons::symbol(const QString& name)
{
    if (auto found = m_cache.constFind(name); found != m_cache.constEnd())
        return *found;
    Icon icon = lookUp(name);
    if (icon.isNull()) {
        m_cache.remove(name);
        return icon;
    }
    m_cache.insert(name, icon);
    return icon;
}

SymbolIcons::Icon SymbolIcons::lookUp(const QString& name)
{
    for (const Equivalent& equivalent : equivalents) {
        if (name != QLatin1String(equivalent.symbol))
            continue;
        for (const char* themeName : equivalent.themeNames) {
            const QString symbolic = QLatin1String(themeName) + QLatin1String("-symbolic");
            if (QIcon::hasThemeIcon(symbolic))
                return {QIcon::fromTheme(symbolic), true};
        }
        for (const char* themeName : equivalent.themeNames) {
            if (QIcon::hasThemeIcon(QLatin1String(themeName)))
                return {QIcon::fromTheme(QLatin1String(themeName)), false};
        }
        return {QIcon(QLatin1String(equivalent.shipped)), true};
    }
    return {};
}

QPixmap SymbolIcons::render(const Icon& icon, QSize size, qreal devicePixelRatio,
                            const QColor& color)
{
    const QSize pixels = (QSizeF(size) * devicePixelRatio).toSize();
    QPixmap source = icon.icon.pixmap(pixels);
    // Themes may answer with a smaller size than asked for; scale it up so the icon keeps
    // its place, smoothly.
    if (source.size() != pixels && !source.isNull())
        source = source.scaled(pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    source.setDevicePixelRatio(1);

    QPixmap out(pixels);
    out.fill(Qt::transparent);
    QPainter painter(&out);
    const QPoint offset((pixels.width() - source.width()) / 2,
                        (pixels.height() - source.height()) / 2);
    if (icon.tintable) {
        painter.drawPixmap(offset, source);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(out.rect(), color);
    } else {
        painter.setOpacity(color.alphaF());
        painter.drawPixmap(offset, source);
    }
    painter.end();
    out.setDevicePixelRatio(devicePixelRatio);
    return out;
}
