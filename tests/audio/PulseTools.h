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

// Modules loaded for one test, unloaded when it ends.
class Modules {
public:
    ~Modules()
    {
        for (const QString& index : m_loaded)
            pactl({QStringLiteral("unload-module"), index});
    }

    // A null sink that looks like a sound card's.
    QString addSink(const QString& sinkName, const QString& description)
    {
        return load(QStringLiteral("module-null-sink"),
                    QStringLiteral("sink_name=%1 sink_properties='device.description=\"%2\" "
                                   "device.class=sound'")
                        .arg(sinkName, description));
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
