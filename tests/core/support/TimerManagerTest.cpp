#include "core/support/TimerManager.h"

#include "support/EventLoop.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

class TimerManagerTest : public ::testing::Test {
protected:
    TimerManager timers;
};

// A repeating timer fires until invalidated.
TEST_F(TimerManagerTest, repeatingTimerFiresUntilInvalidated) {
    int fired = 0;
    timers.schedule("recording.duration", 0.01, true, [&] { ++fired; });
    ASSERT_TRUE(waitUntil([&] { return fired >= 3; }, 10000ms));
    EXPECT_TRUE(timers.isActive("recording.duration"));

    timers.invalidate("recording.duration");
    const int before = fired;
    processEventsFor(60ms);
    EXPECT_EQ(fired, before);
    EXPECT_EQ(timers.activeTimerCount(), 0);
}

// Scheduling an active identifier replaces the timer: the old block never fires again.
TEST_F(TimerManagerTest, reschedulingReplacesTheOldBlock) {
    int oldFired = 0, newFired = 0;
    timers.schedule("x", 0.02, false, [&] { ++oldFired; });
    timers.schedule("x", 0.02, false, [&] { ++newFired; });
    EXPECT_EQ(timers.activeTimerCount(), 1);
    ASSERT_TRUE(waitUntil([&] { return newFired == 1; }, 10000ms));
    processEventsFor(50ms);
    EXPECT_EQ(oldFired, 0);
}

// A one-shot is gone before its block runs, so the block may schedule the same id again; a
// plain non-repeating timer that fired no longer counts as active.
TEST_F(TimerManagerTest, scheduleOnceRemovesItselfBeforeRunning) {
    bool wasActiveInside = true;
    int rounds = 0;
    std::function<void()> again = [&] {
        wasActiveInside = timers.isActive("once");
        if (++rounds < 2)
            timers.scheduleOnce("once", 0.0, again);
    };
    timers.scheduleOnce("once", 0.0, again);
    ASSERT_TRUE(waitUntil([&] { return rounds == 2; }, 10000ms));
    EXPECT_FALSE(wasActiveInside);
    EXPECT_TRUE(timers.activeTimerIDs().isEmpty());

    timers.schedule("plain", 0.0, false, [] {});
    processEventsFor(20ms);
    EXPECT_EQ(timers.activeTimerCount(), 0);
}

// Unknown identifiers are ignored; invalidateAll stops every timer.
TEST_F(TimerManagerTest, invalidateUnknownIsIgnoredAndAllStopsEverything) {
    timers.invalidate("nope");
    timers.schedule("a", 10, true, [] {});
    timers.schedule("b", 10, true, [] {});
    timers.invalidateAll();
    EXPECT_EQ(timers.activeTimerCount(), 0);
}
