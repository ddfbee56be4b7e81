#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFuture>
#include <QThread>

#include <chrono>
#include <functional>

namespace testing_support {

// Runs the event loop until `done` holds or `timeout` passes; answers whether it held.
inline bool spinUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10))
{
    QDeadlineTimer deadline(timeout);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QCoreApplication::sendPostedEvents();
    }
    return true;
}

// Runs the event loop for `duration`, letting timers and sockets make progress.
inline void spinFor(std::chrono::milliseconds duration)
{
    QDeadlineTimer deadline(duration);
    while (!deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

// Waits for a future while keeping the event loop turning (the future's work may need it).
template <typename T>
bool await(const QFuture<T>& future, std::chrono::milliseconds timeout = std::chrono::seconds(20))
{
    return spinUntil([&] { return future.isFinished(); }, timeout);
}

} // namespace testing_support
