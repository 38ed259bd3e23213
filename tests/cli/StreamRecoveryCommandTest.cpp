#include "media/MovieProbe.h"
#include "platform/x11/X11Connection.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/ScreenAnimation.h"
#include "support/SharedMemoryEviction.h"
#include "support/XvfbSession.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;

namespace {

std::string readText(const QString& path) {
    std::ifstream in(path.toStdString());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

XvfbSession::Options twoMonitors() {
    XvfbSession::Options options;
    options.twoMonitors = true;
    return options;
}

double maxGapOf(const std::vector<double>& times) {
    double gap = 0;
    for (size_t i = 1; i < times.size(); ++i)
        gap = std::max(gap, times[i] - times[i - 1]);
    return gap;
}

const std::string rightMonitor = "1920/508x1080/286+1920+0";

// Records the right-hand monitor until stopped; stdout and stderr go to files in the folder.
struct MonitorRecording {
    MonitorRecording() {
        const uint32_t right = X11Connection().atom("right");
        ChildProcess::Options options;
        options.stdoutPath = (folder.path() + "/stdout.txt").toStdString();
        options.stderrPath = (folder.path() + "/stderr.txt").toStdString();
        process =
            ChildProcess({TAVELQUISTON_CLI_PATH, "record", "--output", folder.path().toStdString(),
                          "--fps", "30", "--display", std::to_string(right)},
                         options);
    }
    std::string output() const { return readText(folder.path() + "/stdout.txt"); }
    std::string errors() const { return readText(folder.path() + "/stderr.txt"); }
    bool waitForOutput(const std::string& text, std::chrono::milliseconds bound = 10s) {
        return waitUntil([&] { return output().find(text) != std::string::npos; }, bound);
    }

    QTemporaryDir folder;
    ChildProcess process;
};

} // namespace

// The recorded monitor goes away and comes back while the recovery retries: the recording goes
// on, and the file holds the time before and after, without the outage.
TEST(StreamRecoveryCommandTest, MonitorRemovedAndRestoredRecovers) {
    REQUIRE_XVFB(twoMonitors());
    XvfbSession session(twoMonitors());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;
    MonitorRecording recording;
    ASSERT_TRUE(recording.waitForOutput("Successfully appended video frame #1"))
        << recording.errors();
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
    kill(recording.process.pid(), SIGTERM);
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();
    const auto stopped = std::chrono::steady_clock::now();

    std::istringstream lines(recording.output());
    std::string movie;
    for (std::string line; std::getline(lines, line);)
        if (line.size() > 4 && line.compare(line.size() - 4, 4, ".mov") == 0)
            movie = line;
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value()) << movie;
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width, 1920);
    const auto seconds = [](auto span) { return std::chrono::duration<double>(span).count(); };
    // What was recorded: from the first frame to the removal (detected within a second), and
    // from the restart to the stop; never the whole outage.
    const double recorded = seconds(stopped - started) - seconds(restarted - removed);
    EXPECT_NEAR(video->endSeconds, recorded, 1.3);
    EXPECT_LT(video->endSeconds, seconds(stopped - started) - 0.4);
    EXPECT_LT(maxGapOf(video->packetTimes), 0.5) << "the outage left a hole in the file";
}

// A monitor that stays away ends the recording after three attempts, with the alert.
TEST(StreamRecoveryCommandTest, MonitorGoneForGoodEndsTheRecording) {
    REQUIRE_XVFB(twoMonitors());
    XvfbSession session(twoMonitors());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;
    MonitorRecording recording;
    ASSERT_TRUE(recording.waitForOutput("Successfully appended video frame #1"))
        << recording.errors();
    std::this_thread::sleep_for(2s);
    ASSERT_EQ(runCommand({"xrandr", "--delmonitor", "right"}, 5s), 0);
    ASSERT_EQ(recording.process.waitForExit(20s), 1) << recording.output();
    EXPECT_NE(recording.output().find("❌ Stream recovery attempt 3 failed"), std::string::npos);
    EXPECT_NE(recording.errors().find("Recording Interrupted"), std::string::npos)
        << recording.errors();
    // What was recorded before the monitor went is kept, playable, and the alert says where.
    std::string kept;
    std::istringstream lines(recording.output());
    for (std::string line; std::getline(lines, line);)
        if (line.find(" (Recovered).mov") != std::string::npos)
            kept = line;
    ASSERT_FALSE(kept.empty()) << recording.output();
    EXPECT_NE(recording.errors().find("(Recovered).mov"), std::string::npos);
    const auto probed = probeMovie(kept);
    ASSERT_TRUE(probed.has_value()) << kept;
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_GT(video->endSeconds, 1.5);
    EXPECT_LT(video->endSeconds, 4.5);
}

// The X server drops the shared memory the screen is grabbed through: the stream error takes the
// recovery path, the recording goes on (without shared memory) and the file has no hole.
TEST(StreamRecoveryCommandTest, LostSharedMemoryRecovers) {
    REQUIRE_XVFB(twoMonitors());
    REQUIRE_NOTHING_MISSING(sharedMemoryEvictionMissing());
    XvfbSession session(twoMonitors());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;
    MonitorRecording recording;
    ASSERT_TRUE(recording.waitForOutput("Successfully appended video frame #1"))
        << recording.errors();
    const auto started = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(1500ms);
    const SharedMemoryEviction eviction = detachEverySharedMemorySegment();
    ASSERT_TRUE(eviction.error.empty()) << eviction.error;
    ASSERT_GE(eviction.detached, 1);
    ASSERT_TRUE(recording.waitForOutput("🛑 SCStream error")) << recording.output();
    ASSERT_TRUE(recording.waitForOutput("✅ Stream recovery started")) << recording.output();
    ASSERT_TRUE(recording.waitForOutput("⏱️ Stream downtime")) << recording.output();
    std::this_thread::sleep_for(3000ms);
    kill(recording.process.pid(), SIGTERM);
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    // One loss, one recovery: the restarted stream does not fail again.
    const std::string output = recording.output();
    EXPECT_EQ(output.find("🛑 SCStream error"), output.rfind("🛑 SCStream error"));

    std::istringstream lines(output);
    std::string movie;
    for (std::string line; std::getline(lines, line);)
        if (line.size() > 4 && line.compare(line.size() - 4, 4, ".mov") == 0)
            movie = line;
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value()) << movie;
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width, 1920);
    // The outage (at least the first attempt's half second) is not in the file, the rest is.
    EXPECT_LT(video->endSeconds, elapsed - 0.4);
    EXPECT_GT(video->endSeconds, elapsed - 2.5);
    EXPECT_LT(maxGapOf(video->packetTimes), 0.5) << "the outage left a hole in the file";
}
