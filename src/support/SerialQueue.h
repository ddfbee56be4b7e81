#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

// A worker thread that runs submitted jobs one at a time, in submission order.
// Jobs submitted from one thread therefore never overlap and never reorder.
class SerialQueue {
public:
    SerialQueue();
    ~SerialQueue(); // finishes the jobs already submitted, then joins

    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(std::function<void()> job);
    // Returns once every job submitted before it, and `job` itself, has run.
    void sync(std::function<void()> job = {});

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_jobs;
    bool m_closing = false;
    std::thread m_thread;
};
