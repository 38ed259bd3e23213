#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

// How many idle buffers a pool may give back. A burst (a writer that fell behind on a busy
// machine) makes a pool lend out many buffers at once; those that then stay idle through a whole
// window were not needed in it and go back to the system, all but one spare, so a long
// recording's memory follows what it uses now, not its worst moment. Not thread-safe: a pool
// calls it under its own lock.
class IdleBufferTrim final {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t spareBuffers = 1;

    explicit IdleBufferTrim(std::chrono::milliseconds window = std::chrono::seconds(2))
        : m_window(window), m_windowStart(Clock::now()) {}

    // A buffer was taken; `idleNow` are left idle.
    void noteTaken(std::size_t idleNow) { m_fewestIdle = std::min(m_fewestIdle, idleNow); }

    // How many of the `idleNow` idle buffers to release now, the ones idle longest: none until a
    // window has passed since the last answer.
    std::size_t surplus(std::size_t idleNow, Clock::time_point now = Clock::now()) {
        if (now - m_windowStart < m_window)
            return 0;
        const std::size_t unused = std::min(m_fewestIdle, idleNow);
        const std::size_t release = unused > spareBuffers ? unused - spareBuffers : 0;
        m_fewestIdle = idleNow - release;
        m_windowStart = now;
        return release;
    }

private:
    std::chrono::milliseconds m_window;
    Clock::time_point m_windowStart;
    std::size_t m_fewestIdle = 0;
};
