#include "media/MovieProbe.h"
#include "platform/x11/X11Connection.h"
#include "support/CliRun.h"
#include "support/ScreenAnimation.h"
#include "support/SharedMemoryEviction.h"
#include "support/XvfbSession.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

using namespace std::chrono_literals;

namespace {

XvfbSession::Options twoMonitors() {
    XvfbSession::Options options;
    options.twoMonitors = true;
    return options;
}

const std::string rightMonitor = "1920/508x1080/286+1920+0";

// Records the right-hand monitor until stopped.
struct MonitorRecording : RecordRun {
    MonitorRecording()
        : RecordRun({"--fps", "30", "--display", std::to_string(X11Connection().atom("right"))}) {}
};

} // namespace

// The recorded monitor goes away and comes back while the recovery retries: the recording goes
// on, and the file holds the time before and after, without the outage.
TEST(StreamRecoveryCommandTest, MonitorRemovedAndRestoredRecovers) {
    START_XVFB(session, twoMonitors());
    ScreenAnimation animation;
    MonitorRecording recording;
    ASSERT_TRUE(recording.waitForFirstFrame(10s)) << recording.errors();
    const auto started = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(1s);

    ASSERT_EQ(runCommand({"xrandr", "--delmonitor", "right"}, 5s), 0);
    const auto removed = std::chrono::steady_clock::now();
    ASSERT_TRUE(recording.waitForOutput("🛑 SCStream error")) << recording.output();
    ASSERT_EQ(runCommand({"xrandr", "--setmonitor", "right", rightMonitor, "none"}, 5s), 0);
    ASSERT_TRUE(recording.waitForOutput("✅ Stream recovery started")) << recording.output();
    ASSERT_TRUE(recording.waitForOutput("⏱️ Stream downtime")) << recording.output();
    const auto restarted = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(1s);
    recording.signal(SIGTERM);
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    const auto stopped = std::chrono::steady_clock::now();

    const std::string movie = recording.writtenFile(".mov");
    const auto video = probeVideo(movie);
    ASSERT_TRUE(video) << movie;
    EXPECT_EQ(video->width, 1920);
    const auto seconds = [](auto span) { return std::chrono::duration<double>(span).count(); };
    // What was recorded: from the first frame to the removal (detected within a second), and
    // from the restart to the stop; never the whole outage.
    const double recorded = seconds(stopped - started) - seconds(restarted - removed);
    EXPECT_NEAR(video->endSeconds, recorded, 1.3);
    EXPECT_LT(video->endSeconds, seconds(stopped - started) - 0.4);
    EXPECT_LT(video->largestGap(), 0.5) << "the outage left a hole in the file";
}

// A monitor that stays away ends the recording after three attempts, with the alert.
TEST(StreamRecoveryCommandTest, MonitorGoneForGoodEndsTheRecording) {
    START_XVFB(session, twoMonitors());
    ScreenAnimation animation;
    MonitorRecording recording;
    ASSERT_TRUE(recording.waitForFirstFrame(10s)) << recording.errors();
    std::this_thread::sleep_for(2s);
    ASSERT_EQ(runCommand({"xrandr", "--delmonitor", "right"}, 5s), 0);
    ASSERT_EQ(recording.waitForExit(20s), 1) << recording.output();
    EXPECT_NE(recording.output().find("❌ Stream recovery attempt 3 failed"), std::string::npos);
    EXPECT_NE(recording.errors().find("Recording Interrupted"), std::string::npos)
        << recording.errors();
    // What was recorded before the monitor went is kept, playable, and the alert says where.
    const std::string kept = recording.writtenFile(" (Recovered).mov");
    ASSERT_FALSE(kept.empty()) << recording.output();
    EXPECT_NE(recording.errors().find("(Recovered).mov"), std::string::npos);
    const auto video = probeVideo(kept);
    ASSERT_TRUE(video) << kept;
    EXPECT_GT(video->endSeconds, 1.5);
    EXPECT_LT(video->endSeconds, 4.5);
}

// The X server drops the shared memory the screen is grabbed through: the stream error takes the
// recovery path, the recording goes on (without shared memory) and the file has no hole.
TEST(StreamRecoveryCommandTest, LostSharedMemoryRecovers) {
    START_XVFB(session, twoMonitors());
    REQUIRE_NOTHING_MISSING(sharedMemoryEvictionMissing());
    ScreenAnimation animation;
    MonitorRecording recording;
    ASSERT_TRUE(recording.waitForFirstFrame(10s)) << recording.errors();
    const auto started = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(1500ms);
    const SharedMemoryEviction eviction = detachEverySharedMemorySegment();
    ASSERT_TRUE(eviction.error.empty()) << eviction.error;
    ASSERT_GE(eviction.detached, 1);
    ASSERT_TRUE(recording.waitForOutput("🛑 SCStream error")) << recording.output();
    ASSERT_TRUE(recording.waitForOutput("✅ Stream recovery started")) << recording.output();
    ASSERT_TRUE(recording.waitForOutput("⏱️ Stream downtime")) << recording.output();
    std::this_thread::sleep_for(3000ms);
    recording.signal(SIGTERM);
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    // One loss, one recovery: the restarted stream does not fail again.
    const std::string output = recording.output();
    EXPECT_EQ(output.find("🛑 SCStream error"), output.rfind("🛑 SCStream error"));

    const std::string movie = recording.writtenFile(".mov");
    const auto video = probeVideo(movie);
    ASSERT_TRUE(video) << movie;
    EXPECT_EQ(video->width, 1920);
    // The outage (at least the first attempt's half second) is not in the file, the rest is.
    EXPECT_LT(video->endSeconds, elapsed - 0.4);
    EXPECT_GT(video->endSeconds, elapsed - 2.5);
    EXPECT_LT(video->largestGap(), 0.5) << "the outage left a hole in the file";
}
