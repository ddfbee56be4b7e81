// velotide-emulator HOUSEHOLD.json [--port N] [--ssdp]: an emulated Sonos household on
// loopback addresses, for trying the application without speakers.
#include "emulator/Emulator.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

// Ctrl-C and SIGTERM end the event loop through a pipe, the one safe way out of a handler.
void quitOnSignals(QCoreApplication& app)
{
    if (::pipe(signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
}

QString describe(const emulator::Request& r)
{
    QString line = r.host + u' ' + QString::fromUtf8(r.method) + u' ' + QString::fromUtf8(r.path);
    if (!r.action.isEmpty())
        line += u' ' + r.action;
    if (!r.action.startsWith(QStringLiteral("Set")))
        return line;
    for (const char* name : {"DesiredVolume", "DesiredMute", "EQType", "DesiredValue"}) {
        const QString value = r.argument(QString::fromLatin1(name));
        if (!value.isEmpty())
            line += QStringLiteral(" %1=%2").arg(QString::fromLatin1(name), value);
    }
    return line;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("velotide-emulator"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Emulated Sonos zone players on 127.0.0.x."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("household"),
                                 QStringLiteral("Household file (JSON)."));
    const QCommandLineOption portOption(QStringLiteral("port"),
                                        QStringLiteral("Port the players listen on (1400)."),
                                        QStringLiteral("N"), QStringLiteral("1400"));
    const QCommandLineOption ssdpOption(
        QStringLiteral("ssdp"), QStringLiteral("Answer SSDP searches on 239.255.255.250:1900."));
    parser.addOption(portOption);
    parser.addOption(ssdpOption);
    parser.process(app);

    if (parser.positionalArguments().size() != 1) {
        std::fprintf(stderr, "usage: velotide-emulator HOUSEHOLD.json [--port N] [--ssdp]\n");
        return 2;
    }
    bool portOk = false;
    const uint port = parser.value(portOption).toUInt(&portOk);
    if (!portOk || port == 0 || port > 65535) {
        std::fprintf(stderr, "velotide-emulator: --port needs a number from 1 to 65535\n");
        return 2;
    }

    emulator::Emulator household;
    std::optional<QString> error = household.load(parser.positionalArguments().first());
    if (!error)
        error = household.start(quint16(port));
    if (!error && parser.isSet(ssdpOption))
        error = household.startSsdp();
    if (error) {
        std::fprintf(stderr, "velotide-emulator: %s\n", qPrintable(*error));
        return 1;
    }

    QObject::connect(
        &household, &emulator::Emulator::requestReceived, &app,
        [](const emulator::Request& r) { std::fprintf(stderr, "%s\n", qPrintable(describe(r))); });
    for (const QString& host : household.hosts())
        std::printf("%s (%s) at http://%s:%u\n", qPrintable(household.roomName(host)),
                    qPrintable(household.modelName(host)), qPrintable(host), port);
    std::fflush(stdout);
    quitOnSignals(app);
    return app.exec();
}
