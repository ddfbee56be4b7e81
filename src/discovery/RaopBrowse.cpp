#include "discovery/RaopBrowse.h"

#include "discovery/AirPlayBrowser.h"
#include "support/Log.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {

const QString kService = QStringLiteral("org.freedesktop.Avahi");
const QString kBrowserInterface = QStringLiteral("org.freedesktop.Avahi.ServiceBrowser");
const QString kRaop = QStringLiteral("_raop._tcp");
// AVAHI_IF_UNSPEC and AVAHI_PROTO_UNSPEC: every interface, IPv4 and IPv6.
constexpr int kUnspecified = -1;

} // namespace

RaopBrowse::RaopBrowse(QDBusConnection bus, std::chrono::milliseconds timeout, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, &RaopBrowse::finish);
    m_deadline.start(timeout);

    // The daemon may announce items before the call that makes the browser has returned, so
    // the signals are taken from any browser object before it is asked for.
    const bool listening =
        subscribe("ItemNew", SLOT(itemNew(int, int, QString, QString, QString, uint))) &&
        subscribe("ItemRemove", SLOT(itemRemove(int, int, QString, QString, QString, uint))) &&
        subscribe("AllForNow", SLOT(allForNow())) && subscribe("Failure", SLOT(failure(QString)));
    if (!listening) {
        Log::info(
            QStringLiteral("airplay browse failed: ") +
            (m_bus.isConnected() ? m_bus.lastError().message() : QStringLiteral("no system bus")));
        QMetaObject::invokeMethod(this, &RaopBrowse::finish, Qt::QueuedConnection);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        kService, QStringLiteral("/"), QStringLiteral("org.freedesktop.Avahi.Server"),
        QStringLiteral("ServiceBrowserNew"));
    call << kUnspecified << kUnspecified << kRaop << QString() << 0u;
    auto* watcher =
        new QDBusPendingCallWatcher(m_bus.asyncCall(call, static_cast<int>(timeout.count())), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError()) {
            Log::info(QStringLiteral("airplay browse failed: ") + reply.error().message());
            return finish();
        }
        m_browser = reply.value().path();
        if (m_finished)
            m_bus.asyncCall(QDBusMessage::createMethodCall(kService, m_browser, kBrowserInterface,
                                                           QStringLiteral("Free")));
    });
}

RaopBrowse::~RaopBrowse() = default;

bool RaopBrowse::subscribe(const char* signal, const char* slot)
{
    return m_bus.connect(kService, QString(), kBrowserInterface, QLatin1String(signal), this, slot);
}

void RaopBrowse::unsubscribe(const char* signal, const char* slot)
{
    m_bus.disconnect(kService, QString(), kBrowserInterface, QLatin1String(signal), this, slot);
}

void RaopBrowse::itemNew(int, int, const QString& name, const QString& type, const QString& domain,
                         uint)
{
    if (m_finished || type != kRaop)
        return;
    const std::optional<AirPlayBrowser::Instance> instance = AirPlayBrowser::instance(name);
    if (!instance)
        return;
    if (!m_receivers.contains(instance->name) && m_receivers.size() >= maxNames) {
        if (!m_toldTooMany)
            Log::info(QStringLiteral("airplay browse: more than %1 receiver names; the rest "
                                     "are left out")
                          .arg(maxNames));
        m_toldTooMany = true;
        return;
    }
    ++m_seen[{instance->id, instance->name}];
    m_receivers[instance->name].insert(instance->id);
    m_services.insert(instance->id, {name, domain});
}

void RaopBrowse::itemRemove(int, int, const QString& name, const QString& type, const QString&,
                            uint)
{
    if (m_finished || type != kRaop)
        return;
    const std::optional<AirPlayBrowser::Instance> instance = AirPlayBrowser::instance(name);
    if (!instance)
        return;
    const auto key = qMakePair(instance->id, instance->name);
    if (!m_seen.contains(key) || --m_seen[key] > 0)
        return;
    m_seen.remove(key);
    QSet<QString>& ids = m_receivers[instance->name];
    ids.remove(instance->id);
    if (ids.isEmpty())
        m_receivers.remove(instance->name);
    m_services.remove(instance->id);
}

void RaopBrowse::allForNow()
{
    finish();
}

void RaopBrowse::failure(const QString& error)
{
    Log::info(QStringLiteral("airplay browse failed: ") + error);
    finish();
}

void RaopBrowse::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    m_deadline.stop();
    unsubscribe("ItemNew", SLOT(itemNew(int, int, QString, QString, QString, uint)));
    unsubscribe("ItemRemove", SLOT(itemRemove(int, int, QString, QString, QString, uint)));
    unsubscribe("AllForNow", SLOT(allForNow()));
    unsubscribe("Failure", SLOT(failure(QString)));
    // A browser made after this point is freed when its path arrives.
    if (!m_browser.isEmpty())
        m_bus.asyncCall(QDBusMessage::createMethodCall(kService, m_browser, kBrowserInterface,
                                                       QStringLiteral("Free")));
    emit finished(m_receivers);
}
