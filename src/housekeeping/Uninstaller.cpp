#include "housekeeping/Uninstaller.h"

#include "housekeeping/LoginItem.h"
#include "support/Log.h"
#include "support/PlatformWords.h"
#include "support/Settings.h"
#include "support/UiText.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QUrl>

namespace {

// The key service's program as the distribution's package installs it.
constexpr auto kPackagedService = "/usr/sbin/velotide-keyd";

bool isInside(const QString& path, const QString& folder)
{
    return path.startsWith(QDir::cleanPath(folder) + u'/');
}

// A CMake build tree holds its cache at its top.
bool insideBuildTree(const QString& programPath)
{
    for (QDir dir = QFileInfo(programPath).dir(); !dir.isRoot(); dir.cdUp()) {
        if (dir.exists(QStringLiteral("CMakeCache.txt")))
            return true;
    }
    return false;
}

// The user's trash, with the folders the freedesktop trash keeps. Qt moves a file into the
// working folder when it cannot set the trash up, so it is set up here first.
bool trashIsUsable(QString* error)
{
    const QString trash = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                          QStringLiteral("/Trash");
    if (QDir().mkpath(trash + QStringLiteral("/files")) &&
        QDir().mkpath(trash + QStringLiteral("/info")))
        return true;
    *error = QStringLiteral("the trash folder %1 cannot be used").arg(trash);
    return false;
}

// Removes one item, logging what became of it; a failure does not stop the others.
void removeLogged(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return;
    const bool removed =
        info.isDir() && !info.isSymLink() ? QDir(path).removeRecursively() : QFile::remove(path);
    Log::info((removed ? QStringLiteral("removed ") : QStringLiteral("could not remove ")) + path);
}

QMessageBox* makeAlert(const QString& text, const QString& informative)
{
    auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Velotide"), text);
    box->setInformativeText(informative);
    box->setAttribute(Qt::WA_DeleteOnClose);
    return box;
}

} // namespace

Uninstaller::Uninstaller(LoginItem& loginItem, Options options, QObject* parent)
    : QObject(parent)
    , m_loginItem(loginItem)
    , m_programPath(options.programPath.isEmpty() ? QCoreApplication::applicationFilePath()
                                                  : options.programPath)
    , m_home(options.home.isEmpty() ? QDir::homePath() : options.home)
{
}

Uninstaller::~Uninstaller() = default;

Uninstaller::Copy Uninstaller::copyKind(const QString& programPath, const QString& home)
{
    if (insideBuildTree(programPath))
        return Copy::build;
    return isInside(programPath, home) ? Copy::user : Copy::system;
}

QString Uninstaller::serviceRemovalCommand(bool packagedService)
{
    return packagedService ? QStringLiteral("sudo apt remove velotide")
                           : QStringLiteral("sudo make uninstall");
}

QStringList Uninstaller::confirmationLines(Copy copy, const QString& serviceCommand)
{
    QStringList lines;
    switch (copy) {
    case Copy::user:
        lines << uiText("\u2022 the app itself, moved to the Trash");
        break;
    case Copy::build:
        lines << uiText("\u2022 the app will NOT be moved to the Trash \u2014 it is running from "
                        "a build directory");
        break;
    case Copy::system:
        lines << uiText("\u2022 the app will NOT be moved to the Trash \u2014 it is installed "
                        "for the whole system");
        break;
    }
    lines << uiText("\u2022 your settings and chosen speaker") << uiText("\u2022 the log file")
          << uiText(PlatformText::uninstallGrantsLine)
          << QStringLiteral("   ") + uiText("(to remove it: %1)").arg(serviceCommand)
          << uiText("\u2022 its Open at Login entry");
    return lines;
}

void Uninstaller::run()
{
    if (m_running)
        return;
    m_running = true;
    m_worker.async([this] {
        const Copy copy = copyKind(m_programPath, m_home);
        const QString command =
            serviceRemovalCommand(QFileInfo::exists(QString::fromLatin1(kPackagedService)));
        QMetaObject::invokeMethod(
            this, [this, copy, command] { confirm(copy, command); }, Qt::QueuedConnection);
    });
}

// Return cancels: "Cancel" is the default button, and "Uninstall" takes no key at all.
void Uninstaller::confirm(Copy copy, const QString& serviceCommand)
{
    QMessageBox* box = makeAlert(uiText("Uninstall Velotide?"),
                                 uiText(PlatformText::uninstallConfirmation)
                                     .arg(confirmationLines(copy, serviceCommand).join(u'\n')));
    QPushButton* uninstall = box->addButton(uiText("Uninstall"), QMessageBox::DestructiveRole);
    uninstall->setAutoDefault(false);
    QPushButton* cancel = box->addButton(uiText("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(cancel);
    box->setEscapeButton(cancel);
    connect(box, &QMessageBox::finished, this, [this, box, uninstall, copy] {
        if (box->clickedButton() != uninstall) {
            Log::info(QStringLiteral("uninstall cancelled"));
            m_running = false;
            return;
        }
        Log::info(QStringLiteral("uninstalling"));
        remove(copy);
    });
    box->open();
    box->activateWindow();
}

void Uninstaller::remove(Copy copy)
{
    if (copy != Copy::user) {
        finishRemoval();
        return;
    }
    m_worker.async([this] {
        QFile program(m_programPath);
        QString error;
        if (trashIsUsable(&error) && program.moveToTrash()) {
            Log::info(QStringLiteral("moved to the trash: ") + m_programPath);
            QMetaObject::invokeMethod(this, &Uninstaller::finishRemoval, Qt::QueuedConnection);
            return;
        }
        if (error.isEmpty())
            error = program.errorString();
        Log::info(QStringLiteral("could not trash ") + m_programPath + QStringLiteral(": ") +
                  error);
        QMetaObject::invokeMethod(
            this, [this, error] { trashFailed(error); }, Qt::QueuedConnection);
    });
}

// Nothing else is removed: the user finishes by hand, or tries again.
void Uninstaller::trashFailed(const QString& error)
{
    m_running = false;
    const QString name = QFileInfo(m_programPath).fileName();
    QMessageBox* box = makeAlert(
        uiText("Velotide is still installed"),
        uiText("It could not move itself to the Trash:\n\n%1\n\n%2\n\nDrag %3 to the Trash to "
               "finish removing it.")
            .arg(error, uiText(PlatformText::uninstallGrantsCleared), name));
    QPushButton* show = box->addButton(uiText(PlatformText::showInFolder), QMessageBox::AcceptRole);
    QPushButton* cancel = box->addButton(uiText("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(cancel);
    box->setEscapeButton(cancel);
    connect(box, &QMessageBox::finished, this, [this, box, show] {
        if (box->clickedButton() == show)
            QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(m_programPath).path()));
    });
    box->open();
    box->activateWindow();
}

void Uninstaller::finishRemoval()
{
    m_loginItem.setEnabled(false).then(this, [this](bool) { removeSupportFiles(); });
}

void Uninstaller::removeSupportFiles()
{
    m_worker.async([this] {
        removeLogged(Settings::directory());
        // The log's own folder goes last, with nothing written after it.
        const QString logFolder = QFileInfo(Log::filePath()).path();
        Log::info(QStringLiteral("removing ") + logFolder + QStringLiteral(" and quitting"));
        Log::stop();
        QDir(logFolder).removeRecursively();
        QMetaObject::invokeMethod(this, &Uninstaller::finished, Qt::QueuedConnection);
    });
}
