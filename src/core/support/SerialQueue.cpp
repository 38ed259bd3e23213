#include "core/support/SerialQueue.h"

#include <pthread.h>

#include <future>

SerialQueue::SerialQueue(std::string label)
    : m_label(std::move(label)), m_thread([this] { run(); }) {
    // Thread names are limited to 15 characters; keep the end, which tells queues apart.
    const std::string name = m_label.size() > 15 ? m_label.substr(m_label.size() - 15) : m_label;
    pthread_setname_np(m_thread.native_handle(), name.c_str());
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void SerialQueue::async(std::function<void()> work) {
    {
        std::lock_guard lock(m_mutex);
        m_work.push_back(std::move(work));
    }
    m_wake.notify_one();
}

void SerialQueue::sync(const std::function<void()>& work) {
    std::promise<void> done;
    async([&] {
        work();
        done.set_value();
    });
    done.get_future().wait();
}

void SerialQueue::run() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_closed || !m_work.empty(); });
            if (m_work.empty())
                return;
            work = std::move(m_work.front());
            m_work.pop_front();
        }
        work();
    }
}
