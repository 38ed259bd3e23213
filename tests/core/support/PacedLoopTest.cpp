#include "core/support/PacedLoop.h"

#include "support/EventLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

using namespace std::chrono_literals;

namespace {

using Clock = PacedLoop::Clock;
constexpr auto interval = 10ms;
constexpr int catchUpBound = 3;

struct Simulated {
    std::vector<Clock::duration> tickTimes; // since the start
    int64_t missed = 0;
};

// The loop's own steps on an injected clock: wait for the next tick, advance the schedule,
// run the tick, which takes `cost(index)`. Runs every tick due until `until`.
template <typename Cost>
Simulated simulate(Clock::duration until, Cost cost) {
    const Clock::time_point start{};
    PacedLoop::Schedule schedule(interval, catchUpBound, start);
    Simulated result;
    Clock::time_point now = start;
    while (schedule.next() - start <= until) {
        now = std::max(now, schedule.next());
        result.missed += schedule.advance(now);
        result.tickTimes.push_back(now - start);
        now += cost(result.tickTimes.size() - 1);
    }
    return result;
}

// Every tick due by the end was either run or counted as given up.
int64_t ticksDue(Clock::duration until) {
    return until / interval + 1;
}

} // namespace

// A loop that keeps up ticks exactly on its grid, never early, and gives nothing up.
TEST(PacedLoopScheduleTest, TicksFallOnTheIntervalGrid) {
    const Simulated run = simulate(200ms, [](size_t) { return 2ms; });
    ASSERT_EQ(int64_t(run.tickTimes.size()), ticksDue(200ms));
    for (size_t i = 0; i < run.tickTimes.size(); ++i)
        EXPECT_EQ(run.tickTimes[i], int64_t(i) * interval) << "tick " << i;
    EXPECT_EQ(run.missed, 0);
}

// A stall within the bound is made up by running the held-up ticks at once; later ticks are
// back on the grid.
TEST(PacedLoopScheduleTest, ShortStallIsCaughtUp) {
    const Simulated run = simulate(200ms, [](size_t i) { return i == 5 ? 35ms : 1ms; });
    EXPECT_EQ(run.missed, 0);
    EXPECT_EQ(int64_t(run.tickTimes.size()), ticksDue(200ms));
    // The stalled tick ran at 50 ms and ended at 85: the ticks due at 60, 70 and 80 follow
    // back to back, then 90 on time.
    EXPECT_EQ(run.tickTimes[6], 85ms);
    EXPECT_EQ(run.tickTimes[8], 87ms);
    EXPECT_EQ(run.tickTimes[9], 90ms);
}

// A stall past the bound gives up the ticks beyond it and counts them; none is lost silently
// and the grid is kept.
TEST(PacedLoopScheduleTest, LongStallGivesUpTicksAndCountsThem) {
    const Simulated run = simulate(300ms, [](size_t i) { return i == 1 ? 105ms : 0ms; });
    EXPECT_GT(run.missed, 0);
    EXPECT_EQ(int64_t(run.tickTimes.size()) + run.missed, ticksDue(300ms));
    // After the stall no burst longer than the bound runs at the same moment.
    size_t longestBurst = 1, burst = 1;
    for (size_t i = 1; i < run.tickTimes.size(); ++i) {
        burst = run.tickTimes[i] == run.tickTimes[i - 1] ? burst + 1 : 1;
        longestBurst = std::max(longestBurst, burst);
    }
    EXPECT_LE(longestBurst, size_t(catchUpBound) + 1);
    EXPECT_EQ(run.tickTimes.back(), 300ms);
}

// On its own thread: start first, then ticks no sooner than their time, then finish with the
// stop that ended it.
TEST(PacedLoopTest, RunsTicksAtTheRateUntilStopped) {
    std::atomic<int> ticks{0};
    std::atomic<bool> startedFirst{false};
    std::atomic<int> finished{-1};
    const auto begun = Clock::now();
    Clock::time_point twentiethTick;
    PacedLoop::Callbacks callbacks;
    callbacks.start = [&] {
        startedFirst = ticks == 0;
        return true;
    };
    callbacks.tick = [&] {
        if (++ticks == 20)
            twentiethTick = Clock::now();
        return true;
    };
    callbacks.finish = [&](bool stopped) { finished = stopped ? 1 : 0; };
    PacedLoop loop("PacedLoopTest", PacedLoop::intervalAt(500), std::move(callbacks));
    ASSERT_TRUE(waitUntil([&] { return ticks >= 20; }, 10s));
    loop.stop();
    EXPECT_TRUE(startedFirst);
    EXPECT_EQ(finished, 1);
    EXPECT_FALSE(loop.isRunning());
    // The first tick comes at once, the twentieth 19 intervals later at the soonest.
    EXPECT_GE(twentiethTick - begun, 19 * PacedLoop::intervalAt(500));
    const int after = ticks;
    processEventsFor(20ms);
    EXPECT_EQ(ticks, after);
}

// Stopping never waits out the interval, however long it is.
TEST(PacedLoopTest, StopReturnsWithoutWaitingForTheNextTick) {
    std::atomic<int> ticks{0};
    PacedLoop::Callbacks callbacks;
    callbacks.tick = [&] {
        ++ticks;
        return true;
    };
    PacedLoop loop("PacedLoopTest", 1h, std::move(callbacks));
    ASSERT_TRUE(waitUntil([&] { return ticks == 1; }, 10s));
    const auto asked = Clock::now();
    loop.stop();
    EXPECT_LT(Clock::now() - asked, 5s);
    EXPECT_EQ(ticks, 1);
    loop.stop(); // a second stop is harmless
}

// A callback may end the loop itself: no more ticks, and finish says it was not stopped.
TEST(PacedLoopTest, CallbacksEndTheLoop) {
    std::atomic<int> ticks{0};
    std::atomic<int> finished{-1};
    PacedLoop::Callbacks callbacks;
    callbacks.tick = [&] { return ++ticks < 3; };
    callbacks.finish = [&](bool stopped) { finished = stopped ? 1 : 0; };
    PacedLoop loop("PacedLoopTest", 1ms, std::move(callbacks));
    ASSERT_TRUE(waitUntil([&] { return finished != -1; }, 10s));
    EXPECT_EQ(finished, 0);
    EXPECT_EQ(ticks, 3);

    std::atomic<bool> ticked{false};
    PacedLoop::Callbacks refused;
    refused.start = [] { return false; };
    refused.tick = [&] { return ticked = true; };
    refused.finish = [&](bool stopped) { finished = stopped ? 1 : 2; };
    PacedLoop never("PacedLoopTest", 1ms, std::move(refused));
    ASSERT_TRUE(waitUntil([&] { return finished == 2; }, 10s));
    never.stop();
    EXPECT_FALSE(ticked);
}
