#include "desktop/GSettingsWatch.h"

#include <QProcess>

#include <csignal>
#include <sys/prctl.h>

namespace {

const QString gsettingsProgram = QStringLiteral("gsettings");

} // namespace

GSettingsWatch::GSettingsWatch(QObject* parent)
    : QObject(parent)
{
}

GSettingsWatch::~GSettingsWatch()
{
    // The monitors run until killed, and QProcess's destructor warns about a child that
    // is still running: end them first.
    for (auto* process : findChildren<QProcess*>()) {
        process->disconnect(this);
        process->kill();
        process->waitForFinished(200);
    }
}

void GSettingsWatch::watch(const QString& schema, const QString& key)
{
    read(schema, key);
    if (!m_monitored.contains(schema)) {
        m_monitored.insert(schema);
        monitor(schema);
    }
}

void GSettingsWatch::read(const QString& schema, const QString& key)
{
    auto* process = new QProcess(this);
    connect(process, &QProcess::finished, this,
            [this, process, schema, key](int code, QProcess::ExitStatus status) {
                if (status == QProcess::NormalExit && code == 0)
                    emit valueRead(schema, key, process->readAllStandardOutput().trimmed());
                process->deleteLater();
            });
    connect(process, &QProcess::errorOccurred, this, [process](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            process->deleteLater();
    });
    process->start(gsettingsProgram, {QStringLiteral("get"), schema, key});
}

void GSettingsWatch::monitor(const QString& schema)
{
    auto* process = new QProcess(this);
    process->setProcessChannelMode(QProcess::SeparateChannels);
    // A monitor runs until killed: make sure it goes with this process, however that ends.
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    connect(process, &QProcess::readyReadStandardOutput, this,
            [this, process] { onMonitorOutput(process); });
    process->start(gsettingsProgram, {QStringLiteral("monitor"), schema});
}

// Lines read "key: value", for every key of the schema that changes.
void GSettingsWatch::onMonitorOutput(QProcess* process)
{
    const QString schema = process->arguments().value(1);
    while (process->canReadLine()) {
        const QByteArray line = process->readLine().trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon < 0)
            continue;
        emit valueRead(schema, QString::fromUtf8(line.left(colon)), line.mid(colon + 1).trimmed());
    }
}
