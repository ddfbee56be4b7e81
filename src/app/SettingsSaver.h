#pragma once

#include "support/SerialQueue.h"
#include "support/Settings.h"

#include <QObject>
#include <QString>

// Writes the settings file off the main thread, one save after another in the order they
// were asked for, and keeps whether the latest save failed; the outcome comes back on the
// saver's own thread.
class SettingsSaver : public QObject {
    Q_OBJECT
public:
    // `path` empty: the usual settings file.
    explicit SettingsSaver(QString path = {}, QObject* parent = nullptr);

    void save(const Settings& settings);
    bool hasFailed() const { return m_failed; }

signals:
    void failedChanged(bool failed);

private:
    void finished(bool saved);

    QString m_path;
    bool m_failed = false;
    // Last, so that it finishes its saves while the rest is still there; their outcomes
    // posted meanwhile go with the object.
    SerialQueue m_queue;
};
