#include "ui/HudSpeech.h"

#include <QCoreApplication>
#include <QLocale>

namespace {
QString tr(const char* text)
{
    return QCoreApplication::translate("VolumeHUD", text);
}
} // namespace

QString announcementText(const HudReading& reading)
{
    const QLocale locale;
    if (reading.unreachable)
        return tr("%1 unreachable").arg(reading.speaker);
    if (reading.muted)
        return reading.speaker.isEmpty() ? tr("Muted") : tr("%1, muted").arg(reading.speaker);
    const QString level = locale.toString(reading.volume);
    if (reading.speaker.isEmpty())
        return tr("Volume %1 percent").arg(level);
    return tr("%1, volume %2 percent").arg(reading.speaker, level);
}

std::optional<QString> AnnouncementSchedule::announce(const QString& text, bool isLevel, double now)
{
    std::optional<QString> spokenNow;
    if (!isLevel || !m_repeatAt)
        spokenNow = text;
    m_repeatAt = now + repeatDelay;
    m_repeatText = text;
    return spokenNow;
}

std::optional<QString> AnnouncementSchedule::advance(double now)
{
    if (!m_repeatAt || now < *m_repeatAt)
        return std::nullopt;
    m_repeatAt.reset();
    return m_repeatText;
}
