#include "emulator/Emulator.h"

#include <QThread>

namespace emulator {

struct EmulatorThread::Private {
    QThread thread;
    // Lives on `thread`; made, started, stopped and destroyed there.
    std::unique_ptr<Emulator> emulator;
    QObject anchor; // a handle on `thread` to run work there

    template <typename F>
    void run(F&& f)
    {
        QMetaObject::invokeMethod(&anchor, std::forward<F>(f), Qt::BlockingQueuedConnection);
    }

    std::optional<QString> start(const std::function<std::optional<QString>(Emulator&)>& load,
                                 quint16 port, bool ssdp)
    {
        std::optional<QString> error;
        run([&] {
            error = load(*emulator);
            if (!error)
                error = emulator->start(port);
            if (!error && ssdp)
                error = emulator->startSsdp();
            if (error)
                emulator->stop();
        });
        return error;
    }
};

EmulatorThread::EmulatorThread()
    : d(std::make_unique<Private>())
{
    d->thread.setObjectName(QStringLiteral("emulator"));
    d->anchor.moveToThread(&d->thread);
    d->thread.start();
    d->run([this] { d->emulator = std::make_unique<Emulator>(); });
}

EmulatorThread::~EmulatorThread()
{
    d->run([this] {
        d->emulator.reset();
        d->anchor.moveToThread(nullptr);
    });
    d->thread.quit();
    d->thread.wait();
}

std::optional<QString> EmulatorThread::start(const QString& householdFile, quint16 port, bool ssdp)
{
    return d->start([&](Emulator& e) { return e.load(householdFile); }, port, ssdp);
}

std::optional<QString> EmulatorThread::startJson(const QByteArray& json, quint16 port, bool ssdp)
{
    return d->start([&](Emulator& e) { return e.loadJson(json); }, port, ssdp);
}

Emulator* EmulatorThread::operator->() const
{
    return d->emulator.get();
}

Emulator* EmulatorThread::get() const
{
    return d->emulator.get();
}

} // namespace emulator
