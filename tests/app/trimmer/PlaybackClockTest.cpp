#include "app/trimmer/EditorPlaybackClock.h"
#include "app/trimmer/PlayableRanges.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {
VideoSegment segment(double start, double end, bool removed) {
    VideoSegment s;
    s.startTime = MediaTime::fromSeconds(start, 600);
    s.endTime = MediaTime::fromSeconds(end, 600);
    s.isMarkedForDeletion = removed;
    return s;
}

// What a player's clock says is published only when it is a position and visibly new; a
// forced publication always goes out, so the final position of a pause shows.
TEST(EditorPlaybackClockTest, publishesVisibleChangesOfPositions) {
    EditorPlaybackClock clock;
    std::vector<double> published;
    QObject::connect(&clock, &EditorPlaybackClock::currentTimeChanged,
                     [&](double t) { published.push_back(t); });
    double source = 1.0;
    clock.attach([&] { return source; });
    ASSERT_EQ(published.size(), 1u) << "attaching publishes the player's position at once";
    EXPECT_DOUBLE_EQ(clock.currentTime(), 1.0);

    source = 1.002; // under a 240th of a second
    clock.refreshFromPlayer(false);
    EXPECT_EQ(published.size(), 1u);
    clock.refreshFromPlayer(true);
    EXPECT_EQ(published.size(), 2u);

    source = std::numeric_limits<double>::quiet_NaN();
    clock.refreshFromPlayer(true);
    source = std::numeric_limits<double>::infinity();
    clock.refreshFromPlayer(true);
    EXPECT_EQ(published.size(), 2u) << "a time that is not a number publishes nothing";
    EXPECT_DOUBLE_EQ(clock.currentTime(), 1.002);

    clock.setCurrentTime(-3.0);
    EXPECT_DOUBLE_EQ(clock.currentTime(), 0.0);

    clock.detach();
    source = 9.0;
    clock.refreshFromPlayer(true);
    EXPECT_DOUBLE_EQ(clock.currentTime(), 0.0) << "a detached clock reads no player";
    clock.start();
    EXPECT_FALSE(clock.isRunning());
}

// Running, the clock follows its source at about display rate; stopped, it follows no more.
TEST(EditorPlaybackClockTest, ticksAtDisplayRateWhileRunning) {
    EditorPlaybackClock clock;
    QElapsedTimer elapsed;
    elapsed.start();
    int published = 0;
    QObject::connect(&clock, &EditorPlaybackClock::currentTimeChanged, [&] { ++published; });
    clock.attach([&] { return elapsed.elapsed() / 1000.0; });
    clock.start();
    while (elapsed.elapsed() < 500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    // 30 ticks at 60 a second; a busy machine may lose some, but not most.
    EXPECT_GE(published, 12);
    EXPECT_LE(published, 33);
    EXPECT_NEAR(clock.currentTime(), elapsed.elapsed() / 1000.0, 0.1);
    clock.stop();
    const int atStop = published;
    const double stoppedAt = clock.currentTime();
    while (elapsed.elapsed() < 650)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    EXPECT_EQ(published, atStop);
    EXPECT_DOUBLE_EQ(clock.currentTime(), stoppedAt);
}

// Playback passes over removed parts, neighbouring ones as one, and ends where the recording
// ends when nothing kept follows.
TEST(PlayableRangesTest, passesOverRemovedParts) {
    const PlayableRanges ranges(10.0,
                                {segment(0, 2, true), segment(2, 4, false), segment(4, 5, true),
                                 segment(5, 6, true), segment(6, 9, false), segment(9, 10, true)});
    EXPECT_DOUBLE_EQ(ranges.first(), 2.0);
    EXPECT_DOUBLE_EQ(ranges.resolve(3.0), 3.0);
    EXPECT_DOUBLE_EQ(ranges.resolve(4.0), 6.0) << "a removed part begins at its start";
    EXPECT_DOUBLE_EQ(ranges.resolve(5.5), 6.0);
    EXPECT_DOUBLE_EQ(ranges.resolve(9.5), 10.0);
    EXPECT_DOUBLE_EQ(ranges.keptEnd(2.5), 4.0);
    EXPECT_DOUBLE_EQ(ranges.keptEnd(4.5), 9.0) << "from a removed part, the next kept one";
    EXPECT_DOUBLE_EQ(ranges.resolve(-1.0), 2.0);
    EXPECT_FALSE(ranges.isEmpty());

    EXPECT_TRUE(PlayableRanges(3.0, {segment(0, 1, true), segment(1, 3, true)}).isEmpty());
    EXPECT_TRUE(PlayableRanges(0.0, {}).isEmpty());
    const PlayableRanges whole(3.0, {});
    EXPECT_DOUBLE_EQ(whole.keptEnd(1.0), 3.0);
    EXPECT_DOUBLE_EQ(whole.resolve(2.5), 2.5);
}
} // namespace
