#include "core/recording/RecordingFramePath.h"

#include "FakeRecordingEngines.h"

#include <gtest/gtest.h>

#include <array>
#include <mutex>
#include <thread>

namespace {

// The frame path never opens a frame, so the tests hand it distinct addresses (handles that
// own nothing) and look at which of them reached the writer.
std::array<std::array<unsigned char, 64>, 256> frameStorage;
VideoFrameHandle frameNumber(int index) {
    return VideoFrameHandle(VideoFrameHandle(), reinterpret_cast<const VideoFrame*>(
                                                    frameStorage[size_t(index)].data()));
}
int indexOf(const VideoFrame* frame) {
    return int((reinterpret_cast<const unsigned char*>(frame) - frameStorage[0].data()) / 64);
}

class RecordingWriter final : public MediaWriterEngine {
public:
    std::optional<MediaTime> sessionStart;
    std::vector<int> appended;
    int sessionStartFailures = 0; // the next starts that throw
    bool refuseAppends = false;
    int systemAudio = 0;
    int microphone = 0;

    void configure(const WriterConfiguration&) override {}
    void startWriting() override {}
    void startSession(MediaTime at) override {
        if (sessionStartFailures > 0) {
            --sessionStartFailures;
            throw RecordingError::unknown(QStringLiteral("no session"));
        }
        sessionStart = at;
    }
    bool isWriting() const override { return sessionStart.has_value(); }
    bool hasFailed() const override { return false; }
    bool appendVideoBuffer(const VideoFrame& frame) override {
        if (refuseAppends)
            return false;
        appended.push_back(indexOf(&frame));
        return true;
    }
    bool appendVideoPixelBuffer(const VideoFrame& frame, MediaTime pts) override {
        std::lock_guard lock(pumped);
        pumpedFrames.emplace_back(indexOf(&frame), pts);
        return true;
    }
    std::mutex pumped;
    std::vector<std::pair<int, MediaTime>> pumpedFrames; // under `pumped`
    bool appendAudioBuffer(const AudioBuffer&, int track, bool isMicrophone) override {
        // Both reach the first input; only the flag tells the microphone apart.
        (track == 0 && isMicrophone ? microphone : systemAudio) += 1;
        return true;
    }
    void addTimeOffset(MediaTime) override {}
    std::optional<MediaTime> sessionStartTimeValue() const override { return sessionStart; }
    MediaTime currentTimeOffset() const override { return MediaTime::zero(); }
    std::optional<MediaTime> lastPresentationTime() const override { return std::nullopt; }
    QCoro::Task<QString> finishWriting() override { co_return QString(); }
    void cancel() override {}
};

class RecordingFramePathTest : public ::testing::Test {
protected:
    RecordingFramePathTest() : writerPointer(&writer) {}

    std::unique_ptr<RecordingFramePath> makePath(RecordingFramePath::Hooks hooks = {},
                                                 int frameRate = 30,
                                                 RecordingFramePath::Pump pump = {}) {
        return std::make_unique<RecordingFramePath>(
            RecordingFramePath::Flags{isPaused, recovering, awaitingRestart, writerPointer},
            std::move(hooks), frameRate, pump);
    }
    // Frame `index` at index/60 s, with no duration of its own.
    static VideoSampleTiming at(int index) {
        return VideoSampleTiming{MediaTime::make(index, 60), MediaTime::invalid()};
    }

    RecordingWriter writer;
    std::atomic<bool> isPaused{false};
    std::atomic<bool> recovering{false};
    std::atomic<bool> awaitingRestart{false};
    std::atomic<MediaWriterEngine*> writerPointer;
    const AudioBufferHandle audio = AudioBufferHandle(
        AudioBufferHandle(), reinterpret_cast<const AudioBuffer*>(frameStorage[0].data()));
};

} // namespace

// The first frame starts the session at its own time, once; later frames follow in order.
TEST_F(RecordingFramePathTest, FirstFrameStartsTheSessionAndFramesFollow) {
    std::vector<QString> phases;
    int firstAppends = 0;
    RecordingFramePath::Hooks hooks;
    hooks.markStartupPhase = [&](const QString& phase) { phases.push_back(phase); };
    hooks.firstVideoFrameAppended = [&] { ++firstAppends; };
    auto path = makePath(std::move(hooks));

    for (int i = 5; i < 9; ++i)
        path->handleVideoFrame(frameNumber(i), at(i));

    ASSERT_TRUE(writer.sessionStart.has_value());
    EXPECT_EQ(*writer.sessionStart, MediaTime::make(5, 60));
    EXPECT_EQ(writer.appended, (std::vector<int>{5, 6, 7, 8}));
    EXPECT_EQ(phases, std::vector<QString>{QStringLiteral("mediaWriterSessionStarted")});
    EXPECT_EQ(firstAppends, 1);
    EXPECT_EQ(path->lastCapturedVideoPTS(), MediaTime::make(8, 60));
    // No duration on the frames: one frame of the configured 30 per second.
    EXPECT_EQ(path->lastVideoDuration(), MediaTime::make(1, 30));
}

// A failing session start drops only that frame; the next frame tries again.
TEST_F(RecordingFramePathTest, FailedSessionStartRetriesOnTheNextFrame) {
    writer.sessionStartFailures = 1;
    auto path = makePath();
    path->handleVideoFrame(frameNumber(1), at(1));
    EXPECT_FALSE(writer.sessionStart.has_value());
    path->handleVideoFrame(frameNumber(2), at(2));
    EXPECT_EQ(writer.sessionStart, MediaTime::make(2, 60));
    EXPECT_EQ(writer.appended, std::vector<int>{2});
}

// Frames whose time equals or precedes one already written are dropped.
TEST_F(RecordingFramePathTest, DropsRepeatedAndOutOfOrderTimes) {
    auto path = makePath();
    path->handleVideoFrame(frameNumber(10), at(10));
    path->handleVideoFrame(frameNumber(11), at(10)); // same time
    path->handleVideoFrame(frameNumber(12), at(12));
    path->handleVideoFrame(frameNumber(13), at(11)); // never seen, but older than 12
    EXPECT_EQ(writer.appended, (std::vector<int>{10, 12}));
    // The dropped frame's time still counts as the last captured one.
    EXPECT_EQ(path->lastCapturedVideoPTS(), MediaTime::make(11, 60));
}

// While paused or recovering nothing is written and the session does not start; audio is
// dropped likewise, and also while a restarted stream waits for its first frame.
TEST_F(RecordingFramePathTest, PauseAndRecoveryDropEverything) {
    auto path = makePath();
    isPaused = true;
    path->handleVideoFrame(frameNumber(1), at(1));
    EXPECT_FALSE(writer.sessionStart.has_value());
    isPaused = false;
    path->handleVideoFrame(frameNumber(2), at(2));
    recovering = true;
    path->handleVideoFrame(frameNumber(3), at(3));
    path->handleSystemAudio(audio, {});
    recovering = false;
    awaitingRestart = true;
    path->handleSystemAudio(audio, {});
    path->handleMicrophoneAudio(audio, {});
    EXPECT_EQ(writer.appended, std::vector<int>{2});
    EXPECT_EQ(writer.systemAudio + writer.microphone, 0);
}

// After a stream restart the time origin is new: earlier times no longer count as repeats.
TEST_F(RecordingFramePathTest, RestartForgetsEarlierTimes) {
    auto path = makePath();
    path->handleVideoFrame(frameNumber(1), at(50));
    awaitingRestart = true;
    path->handleVideoFrame(frameNumber(2), at(3));
    EXPECT_EQ(writer.appended, (std::vector<int>{1, 2}));
}

// Audio before the first frame has no place in the file; after it both kinds go to their own
// tracks.
TEST_F(RecordingFramePathTest, AudioWaitsForTheVideoSession) {
    auto path = makePath();
    path->handleMicrophoneAudio(audio, {});
    path->handleSystemAudio(audio, {});
    EXPECT_EQ(writer.systemAudio + writer.microphone, 0);
    path->handleVideoFrame(frameNumber(1), at(1));
    path->handleMicrophoneAudio(audio, {});
    path->handleSystemAudio(audio, {});
    path->handleSystemAudio(audio, {});
    EXPECT_EQ(writer.microphone, 1);
    EXPECT_EQ(writer.systemAudio, 2);
}

// Refused appends are counted and reported to the recovery, which looks at the writer.
TEST_F(RecordingFramePathTest, FailedAppendsReachTheRecovery) {
    int reported = 0;
    RecordingFramePath::Hooks hooks;
    hooks.appendFailed = [&] { ++reported; };
    auto path = makePath(std::move(hooks));
    writer.refuseAppends = true;
    path->handleVideoFrame(frameNumber(1), at(1));
    path->handleVideoFrame(frameNumber(2), at(2));
    EXPECT_EQ(reported, 2);
    EXPECT_EQ(path->failedAppendCount(), 2);
    // Nothing was written, so no frame length was stored.
    EXPECT_EQ(path->lastVideoDuration(), MediaTime::zero());
}

// A separate camera file starts at the screen's first frame, so both share their zero.
TEST_F(RecordingFramePathTest, SeparateCameraStartsAtTheScreenSession) {
    CallLog log;
    FakeCameraCaptureEngine camera(log, "camera");
    RecordingWriter cameraWriter;
    camera.configureSeparateWriter(&cameraWriter);
    RecordingFramePath::Hooks hooks;
    hooks.camera = &camera;
    auto path = makePath(std::move(hooks));
    path->handleVideoFrame(frameNumber(1), at(7));
    path->handleVideoFrame(frameNumber(2), at(8));
    const auto entries = log.entries();
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "camera.startWriterSessionIfNeeded(7/60)"),
              1);
}

namespace {

// What each test frame shows, for the pump's change test: frames 0 and 1 are the same black
// picture, the others as the test sets them.
std::array<uint32_t, 256> shown{};
uint32_t shownBy(const VideoFrame& frame) {
    return shown[size_t(indexOf(&frame))];
}

} // namespace

// The pump stamps frames by count from the first frame's time; a tick without new input
// writes nothing, an unchanged picture repeats the last written frame, and the first frame of
// an all-black picture counts as unchanged with nothing to repeat.
TEST_F(RecordingFramePathTest, PumpStampsByCountAndRepeatsUnchangedPictures) {
    // Ticked by hand: a pump thread would race the test for the first tick.
    shown.fill(0);
    auto path = makePath({}, 30, RecordingFramePath::Pump{true, 30, true, &shownBy, nullptr});
    path->handleVideoFrame(frameNumber(0), at(600)); // black, starts the pump at 10 s
    EXPECT_TRUE(writer.appended.empty()) << "the handler wrote past the pump";

    path->handleVideoFrame(frameNumber(1), at(601));
    path->pumpTick(); // all black: checksum 0, nothing written yet
    path->pumpTick(); // no new input
    EXPECT_EQ(path->pumpFramesEmitted(), 1);
    for (int i = 2; i <= 31; ++i) {
        shown[size_t(i)] = uint32_t(i); // a new picture each time
        path->handleVideoFrame(frameNumber(i), at(600 + i));
        path->pumpTick();
    }
    // The same picture again: the last written frame (31) is repeated.
    shown[40] = 31;
    path->handleVideoFrame(frameNumber(40), at(700));
    path->pumpTick();

    std::lock_guard lock(writer.pumped);
    ASSERT_EQ(writer.pumpedFrames.size(), 31u);
    // Emitted frame n (from 0) is at 10 s + n/30 s; the 31st (n = 30) at exactly 11 s.
    EXPECT_EQ(writer.pumpedFrames[29], std::make_pair(31, MediaTime::make(6600, 600)));
    EXPECT_EQ(writer.pumpedFrames[0], std::make_pair(2, MediaTime::make(6020, 600)));
    EXPECT_EQ(writer.pumpedFrames[30].first, 31);
    EXPECT_EQ(writer.pumpedFrames[30].second, MediaTime::make(6620, 600));
    EXPECT_EQ(path->skippedFrameCount(), 1);
    EXPECT_EQ(path->pumpFramesEmitted(), 32);
    EXPECT_EQ(path->lastVideoDuration(), MediaTime::make(1, 30));
}

// While paused the handler passes nothing on, so the pump's count stands still.
TEST_F(RecordingFramePathTest, PausedPumpEmitsNothing) {
    shown.fill(0);
    auto path = makePath({}, 30, RecordingFramePath::Pump{true, 30, true, &shownBy, nullptr});
    shown[1] = 7;
    path->handleVideoFrame(frameNumber(1), at(2));
    path->pumpTick();
    EXPECT_EQ(path->pumpFramesEmitted(), 1);
    isPaused = true;
    shown[2] = 8;
    path->handleVideoFrame(frameNumber(2), at(3));
    path->pumpTick();
    EXPECT_EQ(path->pumpFramesEmitted(), 1);
}

// The pump's own clock writes without anyone ticking by hand.
TEST_F(RecordingFramePathTest, PumpClockRunsOnItsOwn) {
    shown.fill(0);
    shown[3] = 5;
    auto path = makePath({}, 60, RecordingFramePath::Pump{true, 60, false, &shownBy, nullptr});
    path->handleVideoFrame(frameNumber(3), at(1));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    size_t written = 0;
    while (written == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        std::lock_guard lock(writer.pumped);
        written = writer.pumpedFrames.size();
    }
    path->stopPump();
    EXPECT_EQ(written, 1u);
    EXPECT_FALSE(path->isPumpRunning());
}
