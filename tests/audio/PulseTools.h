#pragma once

// Helpers for tests that run against the private PulseAudio daemon of with-pulseaudio.

#include "common/QtPrinters.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

namespace pulse_testing {

// Runs pactl and answers its standard output, trimmed; a failure fails the test.
inline QString pactl(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral("pactl"), args);
    p.waitForFinished(10000);
    EXPECT_EQ(p.exitCode(), 0) << "pactl " << args.join(u' ').toStdString() << ": "
                               << p.readAllStandardError().toStdString();
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

inline QString defaultSinkName()
{
    return pactl({QStringLiteral("get-default-sink")});
}

// Modules loaded for one test, unloaded when it ends.
class Modules {
public:
    Modules() = default;
    Modules(const Modules&) = delete;
    Modules& operator=(const Modules&) = delete;
    ~Modules()
    {
        for (const QString& index : m_loaded)
            pactl({QStringLiteral("unload-module"), index});
    }

    // A null sink whose properties make it look like a real device. `properties` are
    // given as pactl spells them (key=value key="quoted value").
    QString addSink(const QString& sinkName, const QString& description,
                    const QString& properties = QStringLiteral("device.class=sound"))
    {
        return load(QStringLiteral("module-null-sink"),
                    QStringLiteral("sink_name=%1 sink_properties='device.description=\"%2\" %3'")
                        .arg(sinkName, description, properties));
    }

    QString load(const QString& module, const QString& arguments)
    {
        const QString index = pactl({QStringLiteral("load-module"), module, arguments});
        if (!index.isEmpty())
            m_loaded.prepend(index);
        return index;
    }

    void unload(const QString& index)
    {
        m_loaded.removeAll(index);
        pactl({QStringLiteral("unload-module"), index});
    }

private:
    QStringList m_loaded;
};

} // namespace pulse_testing
