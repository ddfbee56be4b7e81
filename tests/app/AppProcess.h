#pragma once

#include "common/Wait.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <chrono>
#include <string>

// One run of the program with its files under `home` (settings, log, runtime folder) and its
// standard error collected line by line. No key service: the keys are caught by the X11 grab.
// Stopped when it goes out of scope.
class AppProcess {
public:
    AppProcess(QString program, const QString& home)
        : m_program(std::move(program))
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
        env.insert(QStringLiteral("XDG_STATE_HOME"), home + QStringLiteral("/state"));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home);
        m_process.setProcessEnvironment(env);
        m_arguments << QStringLiteral("--key-service=") + home + QStringLiteral("/no-keyd");
        QObject::connect(&m_process, &QProcess::readyReadStandardError, [this] { readErrors(); });
    }

    ~AppProcess() { stop(); }

    // An empty value removes the variable.
    void setVariable(const QString& name, const QString& value)
    {
        QProcessEnvironment env = m_process.processEnvironment();
        if (value.isEmpty())
            env.remove(name);
        else
            env.insert(name, value);
        m_process.setProcessEnvironment(env);
    }

    void start() { m_process.start(m_program, m_arguments); }

    // Ends it as a session ending would (SIGTERM), killing it only when that fails; answers
    // the exit code, or -1 when it did not end by itself.
    int stop()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(5000)) {
                m_process.kill();
                m_process.waitForFinished(2000);
                return -1;
            }
        }
        return exitCode();
    }

    // Runs to the end; answers the exit code, or -1 when it is still running or crashed.
    int finish(std::chrono::milliseconds timeout)
    {
        if (!testing_support::spinUntil(
                [this] { return m_process.state() == QProcess::NotRunning; }, timeout))
            return -1;
        return exitCode();
    }

    qint64 pid() const { return m_process.processId(); }

    // The messages logged so far, without their timestamps.
    const QStringList& messages() const { return m_messages; }

    bool logged(const QString& message) const { return m_messages.contains(message); }

    bool waitFor(const QString& message,
                 std::chrono::milliseconds timeout = std::chrono::seconds(15))
    {
        return testing_support::spinUntil([&] { return logged(message); }, timeout);
    }

    bool waitForPrefix(const QString& prefix)
    {
        const auto starts = [&](const QString& message) { return message.startsWith(prefix); };
        return testing_support::spinUntil(
            [&] { return std::any_of(m_messages.begin(), m_messages.end(), starts); },
            std::chrono::seconds(15));
    }

    // Everything it wrote to standard error, and how it stands, for failure messages.
    std::string describe() const
    {
        const QString how = m_process.state() == QProcess::NotRunning
                                ? QStringLiteral("exited with %1").arg(m_process.exitCode())
                                : QStringLiteral("running as pid %1").arg(pid());
        return (m_stderr + QStringLiteral("(") + how + QStringLiteral(")")).toStdString();
    }

private:
    int exitCode()
    {
        readErrors();
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

    // Log lines are "yyyy-MM-dd HH:mm:ss message"; anything else (Qt's own warnings) is kept
    // only in the full text.
    void readErrors()
    {
        m_stderr += QString::fromUtf8(m_process.readAllStandardError());
        const qsizetype end = m_stderr.lastIndexOf(u'\n') + 1;
        const QStringList lines = m_stderr.mid(m_parsed, end - m_parsed).split(u'\n');
        m_parsed = end;
        for (const QString& line : lines)
            if (line.size() > 20 && line.at(4) == u'-' && line.at(19) == u' ')
                m_messages << line.mid(20);
    }

    QString m_program;
    QStringList m_arguments;
    QProcess m_process;
    QString m_stderr;
    qsizetype m_parsed = 0;
    QStringList m_messages;
};
