#include "desktop/DisplayOptions.h"

#include "desktop/GSettingsWatch.h"
#include "desktop/KdeAnimationSetting.h"
#include "desktop/SessionBus.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace {

const QString atSpiService = QStringLiteral("org.a11y.Bus");
const QString atSpiPath = QStringLiteral("/org/a11y/bus");
const QString atSpiStatus = QStringLiteral("org.a11y.Status");
const QString screenReaderProperty = QStringLiteral("ScreenReaderEnabled");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

} // namespace

DisplayOptionsWatcher::DisplayOptionsWatcher(QObject* parent)
    : QObject(parent)
    , m_gsettings(new GSettingsWatch(this))
{
    connect(m_gsettings, &GSettingsWatch::valueRead, this, &DisplayOptionsWatcher::onGSettings);
    for (Key* key : keys())
        m_gsettings->watch(key->schema, key->name);
    watchAtSpi();
    m_kde = new KdeAnimationSetting(this);
    connect(m_kde, &KdeAnimationSetting::changed, this, &DisplayOptionsWatcher::recompute);
}

void DisplayOptionsWatcher::onGSettings(const QString& schema, const QString& name,
                                        const QByteArray& text)
{
    if (text != "true" && text != "false")
        return;
    for (Key* key : keys()) {
        if (key->schema == schema && key->name == name) {
            key->value = text == "true";
            recompute();
        }
    }
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
