#pragma once

#include <QObject>
#include <QSet>
#include <QString>

class QProcess;

// Reads GNOME settings without ever waiting on the desktop: each key is read by a
// `gsettings get` child process, and followed through one `gsettings monitor` per schema.
// Keys that cannot be read (no such schema, no gsettings) are never reported.
class GSettingsWatch : public QObject {
    Q_OBJECT
public:
    explicit GSettingsWatch(QObject* parent = nullptr);
    ~GSettingsWatch() override;

    // Reads the key now and reports it again whenever it changes.
    void watch(const QString& schema, const QString& key);

signals:
    // `value` is as gsettings prints it: true, 'prefer-dark', ...
    void valueRead(const QString& schema, const QString& key, const QByteArray& value);

private:
    void read(const QString& schema, const QString& key);
    void monitor(const QString& schema);
    void onMonitorOutput(QProcess* process);

    QSet<QString> m_monitored;
};
