#include "support/SerialQueue.h"

#include <future>

SerialQueue::SerialQueue()
    : m_thread([this] { run(); })
{
}

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_closing = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void SerialQueue::async(std::function<void()> job)
{
    {
        std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_wake.notify_one();
}

void SerialQueue::sync(std::function<void()> job)
{
    if (std::this_thread::get_id() == m_thread.get_id()) {
        if (job)
            job(); // waiting on ourselves would never return
        return;
    }
    std::promise<void> done;
    auto finished = done.get_future();
    async([&] {
        if (job)
            job();
        done.set_value();
    });
    finished.wait();
}

void SerialQueue::run()
{
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_closing || !m_jobs.empty(); });
            if (m_jobs.empty())
                return; // closing and drained
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}
