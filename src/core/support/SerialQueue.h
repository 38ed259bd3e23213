#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// One worker thread that runs submitted work in order: the serial executor of the program
// (profiler, compositor render stage). Work that runs on a clock rather than when submitted
// (the window pump, screen capture) uses a PacedLoop. Thread-safe; the destructor runs what is
// queued and then joins.
class SerialQueue {
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const { return m_label; }

    void async(std::function<void()> work);
    // Runs `work` on the queue and waits for it. Never call from the queue's own thread, and
    // never from the main thread on a path that must not block.
    void sync(const std::function<void()>& work);
    bool isCurrent() const { return std::this_thread::get_id() == m_thread.get_id(); }

private:
    void run();

    std::string m_label;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_work;
    bool m_closed = false;
    std::thread m_thread;
};
