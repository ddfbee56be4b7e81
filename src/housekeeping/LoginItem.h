#pragma once

#include "support/SerialQueue.h"

#include <QFuture>
#include <QObject>
#include <QString>

// Opening at login through the desktop's autostart folder: an entry
// $XDG_CONFIG_HOME/autostart/com.brindlewerk.velotide.desktop that starts this program. The
// entry on disk is the truth; this object keeps a copy of its state so that menus can ask
// from memory, and does all file work on a worker thread of its own. Main thread only;
// answers come back on the main thread.
class LoginItem : public QObject {
    Q_OBJECT
public:
    enum class Status {
        notRegistered,
        enabled,
        // The entry is there but switched off (Hidden=true, or turned off in the desktop's
        // autostart settings): only the user turns it back on.
        requiresApproval,
        // The entry starts a program that is not there any more.
        notFound,
    };

    // Empty paths: the usual autostart entry, and this program.
    explicit LoginItem(QString entryPath = {}, QString programPath = {}, QObject* parent = nullptr);

    static QString defaultEntryPath();
    // A program the package manager or the user installed, as opposed to a copy inside a
    // build tree or a download folder: under /usr, /usr/local, /opt or ~/.local.
    static bool isInstalledPath(const QString& programPath, const QString& home);

    // The state last read from disk; notRegistered until the first read finishes.
    Status status() const { return m_status; }
    // Reads the entry again; `changed` follows when the state differs.
    void refresh();

    // True when the wished state holds afterwards. Failures are logged, never shown.
    QFuture<bool> setEnabled(bool on);
    // Registers only an installed copy (false, with a log line, for any other).
    QFuture<bool> registerIfInstalled();

signals:
    void changed(LoginItem::Status status);

private:
    void learn(Status status);

    QString m_entryPath;
    QString m_programPath;
    Status m_status = Status::notRegistered;
    // Last, so that the jobs finish while the paths are still there.
    SerialQueue m_worker;
};
