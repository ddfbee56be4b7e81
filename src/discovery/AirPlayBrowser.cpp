#include "discovery/AirPlayBrowser.h"

#include "discovery/RaopBrowse.h"
#include "support/ReadyFuture.h"

#include <QPromise>

namespace {

using namespace std::chrono_literals;

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

void AirPlayBrowser::finished(const Receivers& receivers)
{
    m_cache = receivers;
    m_stamp.start();
    const std::unique_ptr<Browse> done = std::move(m_browse);
    done->operation->deleteLater();
    for (const auto& promise : done->waiting) {
        promise->addResult(receivers);
        promise->finish();
    }
}
