#include "discovery/AirPlayBrowser.h"

#include "discovery/RaopBrowse.h"
#include "support/Log.h"
#include "support/ReadyFuture.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QPromise>

namespace {

using namespace std::chrono_literals;

// The daemon gives up on a receiver that does not answer after about five seconds.
constexpr auto kResolveTimeout = 10s;

// Receivers come and go rarely; a fresh browse costs the time-out on every refresh otherwise.
constexpr auto kCacheLifetime = 300s;

bool isHexDigit(QChar c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

} // namespace

class AirPlayBrowser::Browse {
public:
    RaopBrowse* operation = nullptr;
    QList<std::shared_ptr<QPromise<Receivers>>> waiting;
};

std::optional<AirPlayBrowser::Instance> AirPlayBrowser::instance(const QString& serviceName)
{
    const qsizetype at = serviceName.indexOf(u'@');
    if (at != 12)
        return std::nullopt;
    const QString id = serviceName.left(12);
    if (!std::all_of(id.begin(), id.end(), isHexDigit))
        return std::nullopt;
    const QString name = serviceName.mid(13).trimmed();
    if (name.isEmpty())
        return std::nullopt;
    return Instance{id.toUpper(), name};
}

AirPlayBrowser::AirPlayBrowser(QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
}

AirPlayBrowser::~AirPlayBrowser() = default;

QFuture<AirPlayBrowser::Receivers> AirPlayBrowser::receivers(std::chrono::milliseconds timeout)
{
    if (m_cache && m_stamp.isValid() &&
        std::chrono::milliseconds(m_stamp.elapsed()) < kCacheLifetime)
        return readyFuture(*m_cache);
    auto promise = std::make_shared<QPromise<Receivers>>();
    promise->start();
    if (!m_browse) {
        m_browse = std::make_unique<Browse>();
        m_browse->operation = new RaopBrowse(m_bus, timeout, this);
        connect(m_browse->operation, &RaopBrowse::finished, this, &AirPlayBrowser::finished);
    }
    m_browse->waiting.append(promise);
    return promise->future();
}

QFuture<bool> AirPlayBrowser::isAmbiguous(const QString& name,
                                          const std::optional<QString>& receiverID)
{
    return receivers().then(this, [name, receiverID](const Receivers& all) {
        const QSet<QString> ids = all.value(name);
        if (ids.size() < 2)
            return false;
        return !receiverID || ids.contains(receiverID->toUpper());
    });
}

QFuture<QStringList> AirPlayBrowser::identities(const QString& name)
{
    return receivers().then(this, [name](const Receivers& all) {
        QStringList ids = all.value(name).values();
        ids.sort();
        return ids;
    });
}

QFuture<std::optional<AirPlayBrowser::Address>> AirPlayBrowser::resolve(const QString& id)
{
    const auto service = m_services.constFind(id);
    if (service == m_services.cend()) {
        Log::info(QStringLiteral("airplay receiver ") + id + QStringLiteral(" is not known"));
        return readyFuture(std::optional<Address>());
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Avahi"), QStringLiteral("/"),
        QStringLiteral("org.freedesktop.Avahi.Server"), QStringLiteral("ResolveService"));
    // Any interface and protocol, any address family, no flags.
    call << -1 << -1 << service->first << QStringLiteral("_raop._tcp") << service->second << -1
         << 0u;
    auto promise = std::make_shared<QPromise<std::optional<Address>>>();
    promise->start();
    auto* watcher = new QDBusPendingCallWatcher(
        m_bus.asyncCall(call, static_cast<int>(std::chrono::milliseconds(kResolveTimeout).count())),
        this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [watcher, promise, instance = service->first] {
                watcher->deleteLater();
                const QDBusMessage reply = watcher->reply();
                const QVariantList values = reply.arguments();
                std::optional<Address> address;
                if (reply.type() == QDBusMessage::ReplyMessage && values.size() >= 10) {
                    address = Address{
                        values.at(7).toString(), static_cast<quint16>(values.at(8).toUInt()), {}};
                    for (const QByteArray& entry : qdbus_cast<QList<QByteArray>>(values.at(9))) {
                        const qsizetype equals = entry.indexOf('=');
                        if (equals > 0)
                            address->properties.insert(QString::fromUtf8(entry.left(equals)),
                                                       QString::fromUtf8(entry.mid(equals + 1)));
                    }
                } else {
                    Log::info(QStringLiteral("airplay receiver '") + instance +
                              QStringLiteral("' did not resolve: ") + reply.errorMessage());
                }
                promise->addResult(address);
                promise->finish();
            });
    return promise->future();
}

void AirPlayBrowser::finished(const Receivers& receivers)
{
    m_cache = receivers;
    m_services.clear();
    for (const auto& [id, service] : m_browse->operation->services().asKeyValueRange())
        m_services.insert(id, {service.instance, service.domain});
    m_stamp.start();
    const std::unique_ptr<Browse> done = std::move(m_browse);
    done->operation->deleteLater();
    for (const auto& promise : done->waiting) {
        promise->addResult(receivers);
        promise->finish();
    }
}
