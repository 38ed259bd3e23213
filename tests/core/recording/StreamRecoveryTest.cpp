#include "core/recording/RecordingCoordinator.h"

#include "CoordinatorHarness.h"
#include "TaskDriver.h"

#include "core/support/ErrorReporter.h"

#include <gtest/gtest.h>

#include <array>

namespace {

class CollectingPresenter final : public AlertPresenter {
public:
    explicit CollectingPresenter(std::vector<QString>* titles) : m_titles(titles) {}
    void showAlert(const QString& title, const QString&, Style) override {
        m_titles->push_back(title);
    }
    bool showConfirmation(const QString&, const QString&, const QString&, const QString&) override {
        return false;
    }

private:
    std::vector<QString>* m_titles;
};

// The frame path never opens a frame: a handle to some bytes stands for one.
std::array<unsigned char, 64> someFrame;
VideoFrameHandle frame() {
    return VideoFrameHandle(VideoFrameHandle(), reinterpret_cast<const VideoFrame*>(&someFrame));
}

class StreamRecoveryTest : public CoordinatorHarness {
protected:
    void SetUp() override {
        CoordinatorHarness::SetUp();
        ErrorReporter::shared().setAlertPresenter(std::make_unique<CollectingPresenter>(&alerts));
        prepareAndStart(screenConfiguration());
        // The first frame opens the file at 10 s on the stream's clock.
        factory.screen->frameHandler(frame(), {MediaTime::make(600, 60), MediaTime::invalid()});
    }
    void TearDown() override {
        CoordinatorHarness::TearDown();
        ErrorReporter::shared().setAlertPresenter(nullptr);
    }

    // The engine reports a stream error on its thread; the coordinator reacts on the main one.
    void interruptStream() {
        factory.screen->errorHandler(
            StreamError{QStringLiteral("X11"), 1, QStringLiteral("monitor removed"), QString()});
        QCoreApplication::processEvents();
    }
    void advance(double seconds) {
        clock.advance(seconds);
        QCoreApplication::processEvents();
    }
    long attemptsToStart() const {
        const auto entries = log.entries();
        return std::count(entries.begin(), entries.end(), "screen.startCapture");
    }

    std::vector<QString> alerts;
};

} // namespace

// Restarted on the second attempt, 0.5 + 1.0 s after the outage: the file continues one frame
// after its last one, and the outage is left out of the recording's duration.
TEST_F(StreamRecoveryTest, RestartLeavesNoHoleInFileOrDuration) {
    factory.writer->lastPTS = MediaTime::make(660, 60); // 11 s written
    advance(1.0);
    interruptStream();
    factory.screen->startFailures = 1;
    advance(0.5);
    EXPECT_TRUE(coordinator->streamRecovery().isRecovering());
    advance(1.0);
    EXPECT_FALSE(coordinator->streamRecovery().isRecovering());
    EXPECT_EQ(attemptsToStart(), 3); // the start of the recording and two attempts
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Recording>());

    // Frames during the outage were never written; the restarted stream's first one, at 20 s,
    // follows the last written frame (11 s) by one frame of 1/60 s.
    factory.screen->frameHandler(frame(), {MediaTime::make(1200, 60), MediaTime::invalid()});
    QCoreApplication::processEvents();
    EXPECT_NEAR((factory.writer->offset).seconds(), 20.0 - 11.0 - 1.0 / 60.0, 1e-6);
    // 1 s recorded before the outage, 1.5 s of outage, then 2 s more.
    advance(2.0);
    EXPECT_NEAR(*coordinator->currentRecordingTimestamp(), 3.0, 1e-3);
    EXPECT_TRUE(alerts.empty());
}

// Three failed attempts, after 0.5, 1.0 and 1.5 s, end the recording with one alert.
TEST_F(StreamRecoveryTest, ThreeFailedAttemptsEndTheRecording) {
    interruptStream();
    factory.screen->startFailures = 3;
    advance(2.9);
    EXPECT_TRUE(coordinator->recordingState().isActive());
    advance(0.2);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Failed>());
    EXPECT_EQ(alerts, std::vector<QString>{QStringLiteral("Recording Interrupted")});
    // A stream error after the end is not a recording to save.
    interruptStream();
    advance(5.0);
    EXPECT_EQ(alerts.size(), 1u);
}

// A writer that fails on every frame ends the recording once, with one alert.
TEST_F(StreamRecoveryTest, WriterFailureIsHandledOnce) {
    factory.writer->failed = true;
    for (int i = 1; i <= 5; ++i)
        factory.screen->frameHandler(frame(), {MediaTime::make(600 + i, 60), MediaTime::invalid()});
    advance(0.0);
    advance(0.0);
    EXPECT_EQ(alerts, std::vector<QString>{QStringLiteral("Recording Failed")});
    const auto* failed = coordinator->recordingState().as<RecordingState::Failed>();
    ASSERT_NE(failed, nullptr);
    EXPECT_TRUE(failed->error.errorDescription().contains("No space left on device"));
}

// While stopping, a stream error is the stream going away as asked: nothing happens.
TEST_F(StreamRecoveryTest, StreamErrorWhileStoppingDoesNothing) {
    auto stopping = launch(coordinator->stopRecording());
    interruptStream();
    ASSERT_TRUE(settle(stopping, clock));
    advance(5.0);
    EXPECT_EQ(attemptsToStart(), 1);
    EXPECT_TRUE(alerts.empty());
}

// The machine going to sleep pauses the recording first; waking leaves it paused and says so.
// Other events change nothing, and after the stop nothing listens.
TEST_F(StreamRecoveryTest, SleepPausesTheRecordingAndWakeSaysSo) {
    ASSERT_TRUE(systemEvents.handler);
    systemEvents.handler(SystemEventMonitor::Event::screensDidSleep);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Recording>());
    systemEvents.handler(SystemEventMonitor::Event::willSleep);
    EXPECT_TRUE(coordinator->isPaused());
    systemEvents.handler(SystemEventMonitor::Event::didWake);
    advance(0.0);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Paused>());
    EXPECT_EQ(notificationTitles, std::vector<QString>{QStringLiteral("Recording Paused")});
    ASSERT_EQ(run(coordinator->stopRecording()), "");
    EXPECT_FALSE(systemEvents.handler);
}
