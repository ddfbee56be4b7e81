#pragma once

#include "ui/HudLook.h"

#include <QString>

#include <optional>

// The sentence a screen reader speaks for a reading, from the application's string table
// with the English text as key.
QString announcementText(const HudReading& reading);

// When announcements are spoken, so that a held key is not read out step by step: an
// isolated change is spoken at once and again 0.3 s later; during a burst of level
// changes only the first level and the level 0.3 s after the last press are spoken.
// Muted and unreachable are always spoken at once. Times are monotonic seconds.
class AnnouncementSchedule {
public:
    static constexpr double repeatDelay = 0.3;

    // Answers the text to post now, if any, and arms the repeat.
    std::optional<QString> announce(const QString& text, bool isLevel, double now);
    // Answers the repeat when it has come due by `now`.
    std::optional<QString> advance(double now);
    std::optional<double> nextWake() const { return m_repeatAt; }
    void cancel() { m_repeatAt.reset(); }

private:
    std::optional<double> m_repeatAt;
    QString m_repeatText;
};
