#include "discovery/SonosDiscovery.h"

#include "discovery/SsdpSearch.h"
#include "sonos/CappedReader.h"
#include "sonos/Tags.h"
#include "sonos/XmlText.h"
#include "support/ReadyFuture.h"

#include <QNetworkRequest>
#include <QPromise>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>

namespace SonosDiscovery {

namespace {

bool modelHasWord(const QString& model, std::initializer_list<const char*> words)
{
    const QStringList modelWords = model.toLower().split(u' ', Qt::SkipEmptyParts);
    return std::any_of(words.begin(), words.end(),
                       [&](const char* word) { return modelWords.contains(QLatin1String(word)); });
}

std::chrono::milliseconds window(double seconds)
{
    if (!(seconds > 0))
        return std::chrono::milliseconds(0);
    return std::chrono::milliseconds(std::llround(seconds * 1000.0));
}

// Collects the descriptions of one sweep as they come in, in any order.
struct Collection {
    QPromise<QList<SonosDevice>> promise;
    QList<SonosDevice> devices;
    qsizetype pending = 0;

    void add(const SonosResult<SonosDevice>& described)
    {
        if (described)
            devices.append(described.value());
        if (--pending == 0)
            deliver();
    }

    void deliver()
    {
        sortByName(devices);
        promise.addResult(devices);
        promise.finish();
    }
};

} // namespace

QByteArray probe()
{
    return SsdpSearch::probe();
}

QFuture<QList<SonosDevice>> browse(double timeout)
{
    auto collection = std::make_shared<Collection>();
    collection->promise.start();
    QFuture<QList<SonosDevice>> future = collection->promise.future();
    SsdpSearch::run(window(timeout)).then([collection](const SsdpSearch::Result& found) {
        describeAll(found.hosts)
            .then([collection, households = found.households](QList<SonosDevice> devices) {
                for (SonosDevice& device : devices)
                    device.household = households.value(device.host);
                collection->devices = devices;
                collection->deliver();
            });
    });
    return future;
}

QFuture<QList<SonosDevice>> describeAll(const QSet<QString>& hosts)
{
    auto collection = std::make_shared<Collection>();
    collection->promise.start();
    QFuture<QList<SonosDevice>> future = collection->promise.future();
    collection->pending = hosts.size();
    if (hosts.isEmpty()) {
        collection->deliver();
        return future;
    }
    for (const QString& host : hosts)
        describe(host).then([collection](const SonosResult<SonosDevice>& described) {
            collection->add(described);
        });
    return future;
}

QFuture<SonosResult<SonosDevice>> describe(const QString& host)
{
    const SonosResult<QUrl> url =
        SonosDevice::url(host, QStringLiteral("/xml/device_description.xml"));
    if (!url)
        return readyFuture<SonosResult<SonosDevice>>(url.error());
    QNetworkRequest request(url.value());
    return CappedReader::read(request).then(
        [host](const SonosResult<CappedReader::Response>& answer) -> SonosResult<SonosDevice> {
            // The status is not looked at: a description that names the device is enough.
            if (!answer)
                return answer.error();
            return parseDescription(host, answer->body);
        });
}

SonosResult<SonosDevice> parseDescription(const QString& host, const QByteArray& body)
{
    const QString text = QString::fromUtf8(body);
    const auto udn = Tags::element(u"UDN", text);
    const auto roomName = Tags::element(u"roomName", text);
    const auto modelName = Tags::element(u"modelName", text);
    if (!udn || !roomName || !modelName)
        return SpeakerError(SonosError::badResponse());
    SonosDevice device;
    device.host = host;
    device.uid = QString(*udn).remove(QStringLiteral("uuid:"));
    device.name = XmlText::unescape(*roomName);
    device.model = XmlText::unescape(*modelName);
    return device;
}

void sortByName(QList<SonosDevice>& devices)
{
    // Equal names (a home theatre's satellites share its room name) are put in host order,
    // so that the same household always comes back in the same order, whichever player's
    // description arrived first.
    std::sort(devices.begin(), devices.end(), [](const SonosDevice& a, const SonosDevice& b) {
        return a.name != b.name ? a.name < b.name : a.host < b.host;
    });
}

bool hasNativeOptical(const QString& model)
{
    const QString lower = model.toLower();
    for (const char* word : {"ray", "playbar", "playbase"})
        if (lower.contains(QLatin1String(word)))
            return true;
    return false;
}

bool neverLeadsARoom(const QString& model)
{
    return modelHasWord(model, {"sub", "boost", "bridge", "zonebridge"});
}

bool leadsHomeTheatre(const QString& model)
{
    return modelHasWord(model, {"arc", "beam", "ray", "playbar", "playbase", "amp"});
}

} // namespace SonosDiscovery
