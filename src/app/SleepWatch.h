#pragma once

#include <QObject>

#include <functional>

// Reports each wake from sleep, from logind's PrepareForSleep(false) on the system bus.
// The bus is reached off the main thread; without a system bus nothing is ever reported.
class SleepWatch : public QObject {
    Q_OBJECT
public:
    explicit SleepWatch(std::function<void()> onWake, QObject* parent = nullptr);

private slots:
    void prepareForSleep(bool sleeping);

private:
    std::function<void()> m_onWake;
};
