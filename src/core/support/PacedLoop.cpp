#include "core/support/PacedLoop.h"

#include <pthread.h>

int64_t PacedLoop::Schedule::advance(Clock::time_point now) {
    m_deadline += m_interval;
    const auto behind = now - m_deadline;
    if (behind <= m_maxCatchUpTicks * m_interval)
        return 0;
    const int64_t givenUp = behind / m_interval;
    m_deadline += givenUp * m_interval;
    return givenUp;
}

PacedLoop::PacedLoop(std::string name, Clock::duration interval, Callbacks callbacks,
                     int maxCatchUpTicks)
    : m_interval(interval), m_maxCatchUpTicks(maxCatchUpTicks), m_callbacks(std::move(callbacks)),
      m_thread([this, name = std::move(name)] { run(name); }) {}

PacedLoop::~PacedLoop() {
    stop();
}

void PacedLoop::stop() {
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard lock(m_mutex);
        m_stopRequested = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void PacedLoop::run(const std::string& name) {
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
    bool stopped = false;
    if (!m_callbacks.start || m_callbacks.start()) {
        Schedule schedule(m_interval, m_maxCatchUpTicks, Clock::now());
        for (;;) {
            {
                // Asked before every tick, also those run late: a stop is never kept waiting
                // by a catch-up.
                std::unique_lock lock(m_mutex);
                if (m_wake.wait_until(lock, schedule.next(), [this] { return m_stopRequested; })) {
                    stopped = true;
                    break;
                }
            }
            m_missed += schedule.advance(Clock::now());
            if (!m_callbacks.tick())
                break;
        }
    }
    if (m_callbacks.finish)
        m_callbacks.finish(stopped);
}
