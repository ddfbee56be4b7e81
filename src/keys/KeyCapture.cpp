#include "keys/KeyCapture.h"

#include "keys/ServiceTap.h"
#include "keys/TapTexts.h"
#include "support/Log.h"

#include <QFileInfo>

KeyCapture::KeyCapture(EventTap::Callbacks callbacks, EventTap::Options options, QObject* parent)
    : QObject(parent)
    , m_servicePath(options.servicePath.isEmpty() ? ServiceTap::defaultPath() : options.servicePath)
{
    // Every tap reports through here, so that a switch can tell whether it brought input
    // access or took it away.
    auto onHealthChange = std::move(callbacks.onHealthChange);
    callbacks.onHealthChange = [this, onHealthChange](bool trusted, bool tapEnabled) {
        m_trusted = trusted;
        if (onHealthChange)
            onHealthChange(trusted, tapEnabled);
    };
    m_callbacks = std::move(callbacks);
    m_tap = EventTap::create(m_callbacks, {m_servicePath});
    m_onService = dynamic_cast<ServiceTap*>(m_tap.get()) != nullptr;
    m_trusted = m_tap->isTrusted();

    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &KeyCapture::follow);
    connect(&m_watchdog, &QTimer::timeout, this, &KeyCapture::watchPass);
}

KeyCapture::~KeyCapture() = default;

void KeyCapture::start(std::chrono::milliseconds interval)
{
    watchFolder();
    m_tap->install();
    m_watchdog.start(interval);
}

void KeyCapture::watchPass()
{
    watchFolder();
    follow();
    m_tap->check();
}

// The folder is the service's own and may come and go with it; while it is missing, the
// watchdog pass looks for it.
void KeyCapture::watchFolder()
{
    if (!m_watcher.directories().isEmpty())
        return;
    const QString folder = QFileInfo(m_servicePath).absolutePath();
    if (QFileInfo(folder).isDir())
        m_watcher.addPath(folder);
}

void KeyCapture::follow()
{
    if (ServiceTap::isReachable(m_servicePath) == m_onService)
        return;
    const bool wasTrusted = m_trusted;
    std::unique_ptr<EventTap> old =
        std::exchange(m_tap, EventTap::create(m_callbacks, {m_servicePath}));
    m_onService = dynamic_cast<ServiceTap*>(m_tap.get()) != nullptr;
    emit tapReplaced(m_tap.get());
    // The old capture lets the keys go before the new one takes them.
    old.reset();
    m_tap->install();
    if (m_trusted && !wasTrusted)
        Log::info(TapTexts::accessGranted());
    else if (!m_trusted && wasTrusted)
        Log::info(TapTexts::accessRevoked());
}
