#include "keys/KeyCapture.h"

#include "keys/ServiceTap.h"
#include "keys/TapTexts.h"
#include "support/Log.h"

#include <QFileInfo>

KeyCapture::KeyCapture(EventTap::Callbacks callbacks, EventTap::Options options, QObject* parent)
    : QObject(parent)
    , m_callbacks(std::move(callbacks))
    , m_servicePath(options.servicePath.isEmpty() ? ServiceTap::defaultPath() : options.servicePath)
    , m_tap(EventTap::create(m_callbacks, {m_servicePath}))
{
    m_onService = dynamic_cast<ServiceTap*>(m_tap.get()) != nullptr;

    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &KeyCapture::follow);
    connect(&m_watchdog, &QTimer::timeout, this, &KeyCapture::watchPass);
}

KeyCapture::~KeyCapture() = default;

void KeyCapture::start(std::chrono::milliseconds interval)
{
    watchFolder();
    m_tap->install();
    m_trusted = m_tap->isTrusted();
    m_watchdog.start(interval);
}

void KeyCapture::watchPass()
{
    watchFolder();
    follow();
    m_tap->check();
    m_trusted = m_tap->isTrusted();
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
    m_trusted = m_tap->isTrusted();
    if (m_trusted && !wasTrusted)
        Log::info(TapTexts::accessGranted());
    else if (!m_trusted && wasTrusted)
        Log::info(TapTexts::accessRevoked());
}
