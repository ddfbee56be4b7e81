#include "desktop/DisplayOptions.h"

#include "desktop/KdeAnimationSetting.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QFileInfo>
#include <QProcess>
#include <QSet>

#include <csignal>
#include <sys/prctl.h>

namespace {

const QString gsettingsProgram = QStringLiteral("gsettings");

const QString atSpiService = QStringLiteral("org.a11y.Bus");
const QString atSpiPath = QStringLiteral("/org/a11y/bus");
const QString atSpiStatus = QStringLiteral("org.a11y.Status");
const QString screenReaderProperty = QStringLiteral("ScreenReaderEnabled");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

// Only an existing session bus is used: with none, libdbus would start one through the X
// server and make this thread wait for it.
bool hasSessionBus()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && QFileInfo::exists(runtime + QStringLiteral("/bus"));
}

} // namespace

DisplayOptionsWatcher::DisplayOptionsWatcher(QObject* parent)
    : QObject(parent)
{
    QSet<QString> monitored;
    for (Key* key : keys()) {
        read(*key);
        if (!monitored.contains(key->schema)) {
            monitored.insert(key->schema);
            monitor(key->schema);
        }
    }
    watchAtSpi();
    m_kde = new KdeAnimationSetting(this);
    connect(m_kde, &KdeAnimationSetting::changed, this, &DisplayOptionsWatcher::recompute);
}

DisplayOptionsWatcher::~DisplayOptionsWatcher()
{
    // The monitors run until killed, and QProcess's destructor warns about a child that
    // is still running: end them first.
    for (auto* process : findChildren<QProcess*>()) {
        process->disconnect(this);
        process->kill();
        process->waitForFinished(200);
    }
}

void DisplayOptionsWatcher::read(Key& key)
{
    auto* process = new QProcess(this);
    connect(process, &QProcess::finished, this, [this, process, &key](int code, auto status) {
        if (status == QProcess::NormalExit && code == 0)
            store(key, process->readAllStandardOutput().trimmed());
        process->deleteLater();
    });
    connect(process, &QProcess::errorOccurred, this, [process](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            process->deleteLater();
    });
    process->start(gsettingsProgram, {QStringLiteral("get"), key.schema, key.name});
}

void DisplayOptionsWatcher::monitor(const QString& schema)
{
    auto* process = new QProcess(this);
    process->setProcessChannelMode(QProcess::SeparateChannels);
    // A monitor runs until killed: make sure it goes with this process, however that ends.
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    connect(process, &QProcess::readyReadStandardOutput, this,
            [this, process] { onMonitorOutput(process); });
    process->start(gsettingsProgram, {QStringLiteral("monitor"), schema});
}

// Lines read "key: value", for every key of the schema that changes.
void DisplayOptionsWatcher::onMonitorOutput(QProcess* process)
{
    while (process->canReadLine()) {
        const QByteArray line = process->readLine().trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon < 0)
            continue;
        const QString name = QString::fromUtf8(line.left(colon));
        const QByteArray value = line.mid(colon + 1).trimmed();
        const QString schema = process->arguments().value(1);
        for (Key* key : keys()) {
            if (key->schema == schema && key->name == name)
                store(*key, value);
        }
    }
}

void DisplayOptionsWatcher::store(Key& key, const QByteArray& text)
{
    if (text != "true" && text != "false")
        return;
    key.value = text == "true";
    recompute();
}

void DisplayOptionsWatcher::watchAtSpi()
{
    if (!hasSessionBus())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(atSpiService, atSpiPath, propertiesInterface, QStringLiteral("PropertiesChanged"),
                this, SLOT(onAtSpiPropertiesChanged(QString, QVariantMap, QStringList)));
    readAtSpi();
}

void DisplayOptionsWatcher::readAtSpi()
{
    QDBusMessage call = QDBusMessage::createMethodCall(atSpiService, atSpiPath, propertiesInterface,
                                                       QStringLiteral("Get"));
    call << atSpiStatus << screenReaderProperty;
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        const QDBusPendingReply<QDBusVariant> reply = *w;
        if (!reply.isError())
            setAtSpiScreenReader(reply.value().variant().toBool());
        w->deleteLater();
    });
}

void DisplayOptionsWatcher::onAtSpiPropertiesChanged(const QString& interface,
                                                     const QVariantMap& changed,
                                                     const QStringList& invalidated)
{
    if (interface != atSpiStatus)
        return;
    if (changed.contains(screenReaderProperty))
        setAtSpiScreenReader(changed.value(screenReaderProperty).toBool());
    else if (invalidated.contains(screenReaderProperty))
        readAtSpi();
}

void DisplayOptionsWatcher::setAtSpiScreenReader(bool on)
{
    m_atSpiScreenReader = on;
    recompute();
}

void DisplayOptionsWatcher::recompute()
{
    DisplayOptions next;
    next.reduceMotion = !m_animations.value || (m_kde && m_kde->animationsOff());
    next.reduceTransparency = m_highContrast.value;
    next.increaseContrast = m_highContrast.value;
    next.screenReader = m_screenReader.value || m_atSpiScreenReader;
    if (next == m_options)
        return;
    m_options = next;
    emit changed(m_options);
}
