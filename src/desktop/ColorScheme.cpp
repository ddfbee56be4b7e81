#include "desktop/ColorScheme.h"

#include "desktop/GSettingsWatch.h"
#include "desktop/SessionBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearanceGroup = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");

const QString gnomeInterface = QStringLiteral("org.gnome.desktop.interface");
const QString gtkThemeKey = QStringLiteral("gtk-theme");

using Preference = ColorScheme::Preference;

// ReadOne answers a variant; Read, the only call older portals know, wraps it once more.
Preference portalPreference(QVariant value)
{
    while (value.metaType() == QMetaType::fromType<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    switch (value.toUInt()) {
    case 1:
        return Preference::Dark;
    case 2:
        return Preference::Light;
    default:
        return Preference::None;
    }
}

// gsettings prints strings quoted: 'prefer-dark'.
QByteArray unquoted(const QByteArray& value)
{
    if (value.size() >= 2 && value.startsWith('\'') && value.endsWith('\''))
        return value.mid(1, value.size() - 2);
    return value;
}

bool paletteIsDark()
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return false;
    const QPalette palette = QGuiApplication::palette();
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

} // namespace

ColorScheme::ColorScheme(QObject* parent)
    : QObject(parent)
    , m_gsettings(new GSettingsWatch(this))
{
    connect(m_gsettings, &GSettingsWatch::valueRead, this, &ColorScheme::onGSettings);
    m_gsettings->watch(gnomeInterface, colorSchemeKey);
    m_gsettings->watch(gnomeInterface, gtkThemeKey);
    watchPortal();
    if (QCoreApplication::instance())
        QCoreApplication::instance()->installEventFilter(this);
    m_dark = paletteIsDark();
}

bool ColorScheme::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == QCoreApplication::instance() &&
        event->type() == QEvent::ApplicationPaletteChange)
        recompute();
    return QObject::eventFilter(watched, event);
}

void ColorScheme::watchPortal()
{
    if (!hasSessionBus())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    // QtDBus finds the slot's argument types by name, which only registered types have.
    qRegisterMetaType<QDBusVariant>();
    bus.connect(portalService, portalPath, settingsInterface, QStringLiteral("SettingChanged"),
                this, SLOT(onSettingChanged(QString, QString, QDBusVariant)));
    // The portal may start, restart or go after this process: ask again each time it comes.
    auto* owner =
        new QDBusServiceWatcher(portalService, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(owner, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& newOwner) {
                ++m_portalSerial;
                m_portal = Preference::None;
                recompute();
                if (!newOwner.isEmpty())
                    readPortal(QStringLiteral("ReadOne"));
            });
    readPortal(QStringLiteral("ReadOne"));
}

void ColorScheme::readPortal(const QString& method)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface, method);
    call << appearanceGroup << colorSchemeKey;
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, method, serial = m_portalSerial](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                if (serial != m_portalSerial)
                    return;
                const QDBusPendingReply<QDBusVariant> reply = *w;
                if (!reply.isError()) {
                    m_portal = portalPreference(reply.value().variant());
                    recompute();
                } else if (method == QStringLiteral("ReadOne") &&
                           reply.error().type() != QDBusError::ServiceUnknown) {
                    readPortal(QStringLiteral("Read"));
                }
            });
}

void ColorScheme::onSettingChanged(const QString& group, const QString& key,
                                   const QDBusVariant& value)
{
    if (group != appearanceGroup || key != colorSchemeKey)
        return;
    ++m_portalSerial;
    m_portal = portalPreference(value.variant());
    recompute();
}

void ColorScheme::onGSettings(const QString& schema, const QString& key, const QByteArray& value)
{
    if (schema != gnomeInterface)
        return;
    if (key == colorSchemeKey) {
        const QByteArray scheme = unquoted(value);
        m_gnome = scheme == "prefer-dark"    ? Preference::Dark
                  : scheme == "prefer-light" ? Preference::Light
                                             : Preference::None;
    } else if (key == gtkThemeKey) {
        m_gtkThemeDark = unquoted(value).toLower().endsWith("-dark");
    } else {
        return;
    }
    recompute();
}

void ColorScheme::recompute()
{
    Preference preference = m_portal;
    if (preference == Preference::None)
        preference = m_gnome;
    if (preference == Preference::None && m_gtkThemeDark)
        preference = Preference::Dark;
    const bool dark =
        preference == Preference::None ? paletteIsDark() : preference == Preference::Dark;
    if (preference == m_preference && dark == m_dark)
        return;
    m_preference = preference;
    m_dark = dark;
    emit changed();
}
