// Writes the fuzzers' starting inputs from the emulator's households: what the players
// really answer (device descriptions, SOAP answers, zone group states, SSDP answers) fetched
// over HTTP from an emulated household, settings files, and the key service's records.
// Usage: velotide-fuzz-seeds HOUSEHOLD.json... OUTPUT-FOLDER
#include "emulator/Emulator.h"
#include "keyservice/Protocol.h"
#include "sonos/SonosDevice.h"
#include "support/Settings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFutureWatcher>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <cstdio>

namespace {

int written = 0;

void write(const QString& folder, const QString& name, const QByteArray& bytes)
{
    QDir().mkpath(folder);
    QFile file(folder + u'/' + name);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
        ++written;
}

template <typename T>
T wait(const QFuture<T>& future)
{
    while (!future.isFinished())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return future.result();
}

QByteArray get(QNetworkAccessManager& http, const QString& url)
{
    QNetworkReply* reply = http.get(QNetworkRequest(QUrl(url)));
    while (!reply->isFinished())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    const QByteArray body = reply->readAll();
    reply->deleteLater();
    return body;
}

// What every player of one household answers.
void fromHousehold(const QString& file, const QString& out, int index)
{
    emulator::EmulatorThread players;
    if (const auto error = players.start(file, 1400, false)) {
        std::fprintf(stderr, "seeds: %s\n", qPrintable(*error));
        return;
    }
    QNetworkAccessManager http;
    for (const QString& host : players->hosts()) {
        const QString tag = QStringLiteral("%1-%2").arg(index).arg(host);
        const SonosDevice device{host, players->uid(host), players->roomName(host), {}};
        write(out + "/device_description", tag,
              get(http, QStringLiteral("http://%1:1400/xml/device_description.xml").arg(host)));
        if (const auto state = wait(device.zoneGroupState()))
            write(out + "/topology", tag, state->toUtf8());
        const auto answer = [&](const QString& path, const QString& service, const QString& action,
                                const QString& arguments) {
            if (const auto body = wait(device.soap(path, service, action, arguments)))
                write(out + "/soap_answer", tag + u'-' + action, body->toUtf8());
        };
        const QString transport = QStringLiteral("/MediaRenderer/AVTransport/Control");
        const QString avt = QStringLiteral("urn:schemas-upnp-org:service:AVTransport:1");
        const QString instance = QStringLiteral("<InstanceID>0</InstanceID>");
        answer(transport, avt, QStringLiteral("GetPositionInfo"), instance);
        answer(transport, avt, QStringLiteral("GetMediaInfo"), instance);
        answer(QStringLiteral("/MediaRenderer/RenderingControl/Control"),
               QStringLiteral("urn:schemas-upnp-org:service:RenderingControl:1"),
               QStringLiteral("GetVolume"), instance + QStringLiteral("<Channel>Master</Channel>"));
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: velotide-fuzz-seeds HOUSEHOLD.json... OUTPUT-FOLDER\n");
        return 2;
    }
    const QString out = arguments.last();
    for (qsizetype i = 0; i + 1 < arguments.size(); ++i)
        fromHousehold(arguments.at(i), out, static_cast<int>(i));

    write(out + "/ssdp_answer", QStringLiteral("zone-player"),
          "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age = 1800\r\nEXT:\r\n"
          "LOCATION: http://127.0.0.11:1400/xml/device_description.xml\r\n"
          "SERVER: Linux UPnP/1.0 Sonos/79.1-56030 (ZPS19)\r\n"
          "ST: urn:schemas-upnp-org:device:ZonePlayer:1\r\n"
          "USN: uuid:RINCON_38420B91A2C401400::urn:schemas-upnp-org:device:ZonePlayer:1\r\n"
          "X-RINCON-HOUSEHOLD: Sonos_hT7kQp2vXw9LmR3aYc5NdE8bZf\r\n\r\n");
    write(out + "/http_response", QStringLiteral("chunked"),
          "\x05HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
          "3;x=y\r\nabc\r\n0\r\nTrailer: t\r\n\r\n");
    write(out + "/http_response", QStringLiteral("length"),
          "\x10HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 4\r\n"
          "Connection: close\r\n\r\nbody");
    write(out + "/http_response", QStringLiteral("until-close"),
          "\x81HTTP/1.0 500 Internal Server Error\nContent-Type: text/xml\n\n<a/>");
    write(out + "/event_request", QStringLiteral("notify"),
          "\x07NOTIFY /events HTTP/1.1\r\nHOST: 127.0.0.1:40123\r\nNT: upnp:event\r\n"
          "NTS: upnp:propchange\r\nSID: uuid:RINCON_38420B91A2C401400_sub0000000001\r\n"
          "SEQ: 0\r\nContent-Length: 85\r\n\r\n<e:propertyset><e:property><GroupVolume>20"
          "</GroupVolume></e:property></e:propertyset>");
    Settings settings;
    settings.speaker = QStringLiteral("Living Room");
    settings.triggerOutput = QStringLiteral("Built-in Audio Digital Stereo (IEC958)");
    settings.triggerConfigured = true;
    write(out + "/settings", QStringLiteral("chosen"), settings.toJson());
    write(out + "/settings", QStringLiteral("empty-object"), "{}");
    QByteArray records;
    for (const keyd::Record& r :
         {keyd::encode(keyd::SetArmed{true}), keyd::encode(keyd::SetPointerButtons{true}),
          keyd::encode(keyd::Hello{}), keyd::encode(keyd::Health{2}),
          keyd::encode(keyd::KeyReport{keyd::MediaKey::soundUp, true, false}),
          keyd::encode(keyd::PointerButton{272})})
        records.append(reinterpret_cast<const char*>(r.data()), static_cast<qsizetype>(r.size()));
    write(out + "/key_protocol", QStringLiteral("every-message"), records);
    std::printf("fuzz seeds: %d files in %s\n", written, qPrintable(out));
    return written > 0 ? 0 : 1;
}
