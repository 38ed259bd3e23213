#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// Runs a callback at a fixed interval on a thread of its own, from construction until `stop`
// or destruction: the capture clock of a screen grabber, the fixed-rate window pump.
//
// A tick that comes late (the thread was not scheduled in time) is followed at once by the
// ones it held up, so a short stall costs nothing. Further behind than `maxCatchUpTicks`, the
// ticks in between are given up and counted: a burst of ticks all run at the same moment helps
// nobody.
//
// Thread: the callbacks run on the loop's thread, one at a time; the public functions are for
// the thread that owns the loop. `missedTicks` may be read from any thread.
class PacedLoop final {
public:
    using Clock = std::chrono::steady_clock;

    struct Callbacks {
        // Once, before the first tick (which follows at once); false ends the loop. Optional.
        std::function<bool()> start;
        // Once per tick; false ends the loop.
        std::function<bool()> tick;
        // The last thing on the thread, however the loop ended; `stopped` when `stop` ended
        // it rather than a callback. Optional.
        std::function<void(bool stopped)> finish;
    };

    // Where the ticks fall, as arithmetic on time points given to it.
    class Schedule {
    public:
        Schedule(Clock::duration interval, int maxCatchUpTicks, Clock::time_point first)
            : m_interval(interval), m_maxCatchUpTicks(maxCatchUpTicks), m_deadline(first) {}
        // When the next tick is due.
        Clock::time_point next() const { return m_deadline; }
        // The tick due at `next()` runs at `now`: moves on to the one after it, past those
        // given up. Returns how many were given up.
        int64_t advance(Clock::time_point now);

    private:
        Clock::duration m_interval;
        int m_maxCatchUpTicks;
        Clock::time_point m_deadline;
    };

    // The interval of `ticksPerSecond` ticks a second, to the nanosecond.
    static Clock::duration intervalAt(int ticksPerSecond) {
        return std::chrono::nanoseconds(1'000'000'000LL / ticksPerSecond);
    }

    // `name` names the thread (15 characters at most are kept).
    PacedLoop(std::string name, Clock::duration interval, Callbacks callbacks,
              int maxCatchUpTicks = 3);
    // Stops the loop.
    ~PacedLoop();
    PacedLoop(const PacedLoop&) = delete;
    PacedLoop& operator=(const PacedLoop&) = delete;

    // Ends the loop and waits for its thread: at most the tick under way and `finish`, never a
    // whole interval. Does nothing the second time.
    void stop();
    // Until `stop`, even when a callback ended the loop by itself.
    bool isRunning() const { return m_thread.joinable(); }
    int64_t missedTicks() const { return m_missed.load(); }

private:
    void run(const std::string& name);

    Clock::duration m_interval;
    int m_maxCatchUpTicks;
    Callbacks m_callbacks;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopRequested = false; // under m_mutex
    std::atomic<int64_t> m_missed{0};
    std::thread m_thread; // last: started once everything above is in place
};
