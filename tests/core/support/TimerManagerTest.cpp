#include "core/support/TimerManager.h"

#include "support/EventLoop.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

class TimerManagerTest : public ::testing::Test {
protected:
    TimerManager timers;
};

// A repeating timer fires until invalidated; its log lines name it and its interval.
TEST_F(TimerManagerTest, repeatingTimerFiresUntilInvalidated) {
    int fired = 0;
    testing::internal::CaptureStdout();
    timers.schedule("recording.duration", 0.01, true, [&] { ++fired; });
    const std::string scheduled = testing::internal::GetCapturedStdout();
    EXPECT_EQ(scheduled,
              "⏱️ Timer scheduled: recording.duration (interval: 0.01s, repeats: true)\n");
    ASSERT_TRUE(waitUntil([&] { return fired >= 3; }, 2000ms));
    EXPECT_TRUE(timers.isActive("recording.duration"));

    testing::internal::CaptureStdout();
    timers.invalidate("recording.duration");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "⏱️ Timer invalidated: recording.duration\n");
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
    ASSERT_TRUE(waitUntil([&] { return newFired == 1; }, 2000ms));
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
    ASSERT_TRUE(waitUntil([&] { return rounds == 2; }, 2000ms));
    EXPECT_FALSE(wasActiveInside);
    EXPECT_TRUE(timers.activeTimerIDs().isEmpty());

    timers.schedule("plain", 0.0, false, [] {});
    processEventsFor(20ms);
    EXPECT_EQ(timers.activeTimerCount(), 0);
}

// Unknown identifiers are ignored silently; invalidateAll reports how many it stopped.
TEST_F(TimerManagerTest, invalidateUnknownIsSilentAndAllCounts) {
    testing::internal::CaptureStdout();
    timers.invalidate("nope");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    timers.schedule("a", 10, true, [] {});
    timers.schedule("b", 10, true, [] {});
    testing::internal::CaptureStdout();
    timers.invalidateAll();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "⏱️ All timers invalidated (count: 2)\n");
    EXPECT_EQ(timers.activeTimerCount(), 0);
}
