#include "keys/EventTap.h"

#include "keys/InactiveTap.h"
#include "keys/ServiceTap.h"
#include "keys/TapTexts.h"
#include "keys/x11/X11Tap.h"
#include "keyservice/Protocol.h"
#include "support/Log.h"

#include <QGuiApplication>
#include <QTimer>

namespace {

// Under XWayland a grab sees the keys only while an X11 window has the focus, which is no
// capture to speak of: a Wayland session without the key service has no tap.
bool sessionRunsOnX11()
{
    if (qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland") ||
        !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return false;
    // qGuiApp is only a cast: a plain QCoreApplication (the probe) has no platform plugin.
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return QGuiApplication::platformName() == QLatin1String("xcb");
    return !qEnvironmentVariableIsEmpty("DISPLAY");
}

} // namespace

std::optional<EventTap::MediaKey> EventTap::mediaKeyFromRaw(int raw)
{
    // The key service and the tap number the keys alike, so a service report maps over.
    static_assert(int(MediaKey::mute) == int(keyd::MediaKey::mute));
    if (raw < 0 || raw > 255)
        return std::nullopt;
    const auto key = keyd::mediaKeyFromRaw(static_cast<std::uint8_t>(raw));
    if (!key)
        return std::nullopt;
    return static_cast<MediaKey>(*key);
}

std::unique_ptr<EventTap> EventTap::create(Callbacks callbacks, Options options)
{
    const QString servicePath =
        options.servicePath.isEmpty() ? ServiceTap::defaultPath() : options.servicePath;
    if (ServiceTap::isReachable(servicePath))
        return std::make_unique<ServiceTap>(std::move(callbacks), servicePath);
    if (sessionRunsOnX11())
        return std::make_unique<X11Tap>(std::move(callbacks));
    return std::make_unique<InactiveTap>(std::move(callbacks));
}

EventTap::EventTap(Callbacks callbacks)
    : m_callbacks(std::move(callbacks))
{
}

EventTap::~EventTap() = default;

void EventTap::startWatchdog(std::chrono::milliseconds interval)
{
    m_watchdog = std::make_unique<QTimer>();
    m_watchdog->setInterval(interval);
    // The timer lives and dies with the tap, so a firing never outlives it.
    QObject::connect(m_watchdog.get(), &QTimer::timeout, m_watchdog.get(), [this] { check(); });
    m_watchdog->start();
}

void EventTap::check()
{
    const bool trusted = isTrusted();
    if (trusted) {
        if (m_wasTrusted == false)
            Log::info(TapTexts::accessGranted());
        if (hasTap()) {
            if (!isAlive()) {
                Log::info(TapTexts::foundDisabled());
                if (!reenable()) {
                    Log::info(TapTexts::rebuilding());
                    teardown();
                    install();
                }
            }
            reportHealth();
        } else {
            install();
        }
    } else {
        if (m_wasTrusted == true)
            Log::info(TapTexts::accessRevoked());
        teardown();
    }
    m_wasTrusted = trusted;
}

bool EventTap::setPointerButtonHandler(std::function<void()>)
{
    return false;
}

void EventTap::reportHealth()
{
    if (m_callbacks.onHealthChange)
        m_callbacks.onHealthChange(isTrusted(), isEnabled());
}

bool EventTap::askArmed() const
{
    return m_callbacks.armed && m_callbacks.armed();
}

void EventTap::reportKey(MediaKey key, bool fine, bool isRepeat) const
{
    if (m_callbacks.onKey)
        m_callbacks.onKey(key, fine, isRepeat);
}
