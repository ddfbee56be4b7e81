#include "app/SettingsSaver.h"

SettingsSaver::SettingsSaver(QString path, QObject* parent)
    : QObject(parent)
    , m_path(path.isEmpty() ? Settings::filePath() : std::move(path))
{
}

void SettingsSaver::save(const Settings& settings)
{
    m_queue.async([this, settings] {
        const bool saved = settings.save(m_path);
        QMetaObject::invokeMethod(
            this, [this, saved] { finished(saved); }, Qt::QueuedConnection);
    });
}

void SettingsSaver::finished(bool saved)
{
    if (m_failed == !saved)
        return;
    m_failed = !saved;
    emit failedChanged(m_failed);
}
