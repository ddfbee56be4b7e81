#include "desktop/KdeAnimationSetting.h"

#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QFutureWatcher>
#include <QPromise>
#include <QStandardPaths>
#include <QThreadPool>

#include <memory>

namespace {

bool readAnimationsOff(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const std::optional<double> factor = KdeAnimationSetting::parseFactor(file.readAll());
    return factor && *factor == 0;
}

} // namespace

KdeAnimationSetting::KdeAnimationSetting(QObject* parent)
    : QObject(parent)
    , m_path(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
             QStringLiteral("/kdeglobals"))
    , m_files(new QFileSystemWatcher(this))
{
    // KDE saves by writing a new file and renaming it over the old one, which only the
    // folder's watch sees; in-place edits only the file's.
    for (const QString& path : {QFileInfo(m_path).absolutePath(), m_path}) {
        if (QFileInfo::exists(path))
            m_files->addPath(path);
    }
    connect(m_files, &QFileSystemWatcher::directoryChanged, this, &KdeAnimationSetting::read);
    connect(m_files, &QFileSystemWatcher::fileChanged, this, &KdeAnimationSetting::read);
    read();
}

std::optional<double> KdeAnimationSetting::parseFactor(const QByteArray& text)
{
    bool inKdeGroup = false;
    std::optional<double> factor;
    for (const QByteArray& rawLine : text.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.startsWith('[')) {
            inKdeGroup = line == "[KDE]";
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        if (!inKdeGroup || equals < 0 || line.left(equals).trimmed() != "AnimationDurationFactor")
            continue;
        bool ok = false;
        const double value = line.mid(equals + 1).trimmed().toDouble(&ok);
        if (ok)
            factor = value;
    }
    return factor;
}

void KdeAnimationSetting::read()
{
    if (!m_files->files().contains(m_path) && QFileInfo::exists(m_path))
        m_files->addPath(m_path);
    auto promise = std::make_shared<QPromise<bool>>();
    auto* watcher = new QFutureWatcher<bool>(this);
    connect(watcher, &QFutureWatcher<bool>::finished, this, [this, watcher] {
        store(watcher->result());
        watcher->deleteLater();
    });
    watcher->setFuture(promise->future());
    QThreadPool::globalInstance()->start([promise, path = m_path] {
        promise->start();
        promise->addResult(readAnimationsOff(path));
        promise->finish();
    });
}

void KdeAnimationSetting::store(bool off)
{
    if (off == m_off)
        return;
    m_off = off;
    emit changed(off);
}
