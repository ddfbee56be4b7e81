#pragma once

#include "support/SerialQueue.h"

#include <QObject>
#include <QString>
#include <QStringList>

class LoginItem;
class QMessageBox;

// Removes Velotide from this user's account at the user's request: asks first, then moves a
// copy in the user's own folders to the freedesktop trash, and removes the open-at-login
// entry, the settings folder and the log files. A copy inside a build tree is never
// trashed, and one installed for the whole system belongs to the package manager (or to
// the project's uninstall target), as does the key service: the alert names the one command
// that removes them. Nothing on the speakers is touched. Main thread only; the file work runs
// on a worker.
class Uninstaller : public QObject {
    Q_OBJECT
public:
    // Where the running program lives, as far as removing it is concerned.
    enum class Copy {
        user,   // in the user's own folders: moved to the trash
        build,  // inside a build tree: left alone
        system, // installed for the whole system: the package manager's
    };

    struct Options {
        QString programPath; // empty: this program
        QString home;        // empty: the user's home folder
    };

    // `loginItem` must outlive this object.
    explicit Uninstaller(LoginItem& loginItem, Options options = {}, QObject* parent = nullptr);
    ~Uninstaller() override;

    // Reads the disk; off the main thread. `packagedService`: the key service came with the
    // distribution's package.
    static Copy copyKind(const QString& programPath, const QString& home);
    static QString serviceRemovalCommand(bool packagedService);
    // The bullet lines of the confirmation, in order.
    static QStringList confirmationLines(Copy copy, const QString& serviceCommand);

    // Asks, and removes when the user agrees. Does nothing while an earlier run is under way.
    void run();

signals:
    // The user agreed and everything of the user's is gone: the application should quit.
    void finished();

private:
    void confirm(Copy copy, const QString& serviceCommand);
    void remove(Copy copy);
    void trashFailed(const QString& error);
    void finishRemoval();
    void removeSupportFiles();

    LoginItem& m_loginItem;
    QString m_programPath;
    QString m_home;
    bool m_running = false;
    // Last, so that the jobs finish while everything else is still there.
    SerialQueue m_worker;
};
