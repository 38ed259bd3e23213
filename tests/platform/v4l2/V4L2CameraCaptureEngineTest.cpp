#include "platform/v4l2/V4L2CameraCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "media/MediaWriterAdapter.h"

#include "media/MovieProbe.h"
#include "support/EventLoop.h"
#include "support/ScopedEnvironment.h"

#include <QCoro/QCoroTask>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <mutex>

using namespace std::chrono_literals;

namespace {

const AVCaptureDevice testCamera{QString(), QStringLiteral("Test Camera")};

// The frames a preview would get: their times and a few facts about their pixels.
class FrameLog {
public:
    void add(const VideoFrame& frame) {
        std::lock_guard lock(m_mutex);
        times.push_back(frame.presentationTime.seconds());
        last = frame;
    }
    size_t count() const {
        std::lock_guard lock(m_mutex);
        return times.size();
    }
    mutable std::mutex m_mutex;
    std::vector<double> times;
    VideoFrame last;
};

WriterConfiguration cameraMovie(const QString& path) {
    WriterConfiguration configuration;
    configuration.outputURL = path.toStdString();
    WriterConfiguration::VideoSettings video;
    video.width = 1280;
    video.height = 720;
    video.frameRate = 30;
    video.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709();
    configuration.videoSettings = video;
    return configuration;
}

// Keeps the times of what was appended; the file format is another test's business.
class TimingWriter final : public MediaWriterEngine {
public:
    void configure(const WriterConfiguration&) override {}
    void startWriting() override {}
    void startSession(MediaTime at) override { start = at; }
    bool isWriting() const override { return true; }
    bool hasFailed() const override { return false; }
    bool appendVideoBuffer(const VideoFrame& frame) override {
        std::lock_guard lock(mutex);
        times.push_back(frame.presentationTime);
        return true;
    }
    bool appendVideoPixelBuffer(const VideoFrame&, MediaTime) override { return false; }
    bool appendAudioBuffer(const AudioBuffer&, int, bool) override { return false; }
    void addTimeOffset(MediaTime) override {}
    std::optional<MediaTime> sessionStartTimeValue() const override { return start; }
    MediaTime currentTimeOffset() const override { return MediaTime::zero(); }
    std::optional<MediaTime> lastPresentationTime() const override { return std::nullopt; }
    QCoro::Task<QString> finishWriting() override { co_return QString(); }
    void cancel() override {}

    std::optional<MediaTime> start;
    std::mutex mutex;
    std::vector<MediaTime> times;
};

class V4L2CameraCaptureEngineTest : public ::testing::Test {
protected:
    ScopedEnvironment testCameraOn{"TAVELQUISTON_TEST_CAMERA", "1"};
};

} // namespace

// The test camera delivers 1280x720 BGRA pictures at 30 frames/s, stamped with the host clock
// the screen uses, in increasing time, with the test pattern's colours rather than one flat fill.
TEST_F(V4L2CameraCaptureEngineTest, TestCameraDeliversHostClockFrames) {
    V4L2CameraCaptureEngine engine;
    engine.setupCamera(testCamera);
    ASSERT_EQ(engine.activeVideoDimensions(), (VideoDimensions{1280, 720}));
    FrameLog frames;
    engine.setFrameHandler([&](const VideoFrame& frame) { frames.add(frame); });
    const double before = MediaTime::hostTimeNow().seconds();
    engine.startCapture();
    ASSERT_TRUE(waitUntil([&] { return frames.count() >= 15; }, 5s));
    engine.stopCapture();
    const double after = MediaTime::hostTimeNow().seconds();

    std::lock_guard lock(frames.m_mutex);
    EXPECT_GE(frames.times.front(), before);
    EXPECT_LE(frames.times.back(), after);
    for (size_t i = 1; i < frames.times.size(); ++i) {
        EXPECT_GT(frames.times[i], frames.times[i - 1]);
        EXPECT_LT(frames.times[i] - frames.times[i - 1], 0.1) << "paced, not bursty: " << i;
    }
    // Paced in real time, not as fast as the graph can draw.
    EXPECT_GT(frames.times.back() - frames.times.front(), 14 * 0.8 / 30);
    const VideoFrame& frame = frames.last;
    ASSERT_EQ(frame.width(), 1280);
    std::set<uint32_t> colours;
    for (int y = 0; y < 720; y += 90) {
        for (int x = 0; x < 1280; x += 80) {
            const uint8_t* pixel = frame.bytes() + y * frame.bytesPerRow() + x * 4;
            EXPECT_EQ(pixel[3], 255);
            colours.insert(uint32_t(pixel[0]) << 16 | uint32_t(pixel[1]) << 8 | pixel[2]);
        }
    }
    EXPECT_GT(colours.size(), 8u);
}

// V4L2 streams to one opener: a second engine on an open device gets a busy error naming it,
// and gets the device once the first lets go. An unknown device is named too.
TEST_F(V4L2CameraCaptureEngineTest, BusyAndMissingDevicesAreNamed) {
    V4L2CameraCaptureEngine first;
    first.setupCamera(testCamera);
    V4L2CameraCaptureEngine second;
    try {
        second.setupCamera(testCamera);
        FAIL() << "a second opener was let in";
    } catch (const RecordingError& error) {
        EXPECT_NE(std::string(error.what()).find("Test Camera"), std::string::npos);
        EXPECT_NE(std::string(error.what()).find("busy"), std::string::npos) << error.what();
    }
    first.cleanup();
    EXPECT_NO_THROW(second.setupCamera(testCamera));

    try {
        V4L2CameraCaptureEngine missing;
        missing.setupCamera(AVCaptureDevice{QStringLiteral("/dev/video97"), "Gone"});
        FAIL() << "a missing device opened";
    } catch (const RecordingError& error) {
        EXPECT_NE(std::string(error.what()).find("/dev/video97"), std::string::npos);
    }
    ScopedEnvironment off("TAVELQUISTON_TEST_CAMERA", std::nullopt);
    V4L2CameraCaptureEngine hidden;
    EXPECT_THROW(hidden.setupCamera(testCamera), RecordingError);
}

// In a separate-layers recording the camera waits for the screen: nothing reaches its file
// before the screen's first frame, a second start keeps the first time, pausing keeps frames
// from the file while previews go on, and the file starts at the screen's first frame.
TEST_F(V4L2CameraCaptureEngineTest, CameraLayerFollowsTheScreenSession) {
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("camera.mov"));
    MediaWriterAdapter writer;
    writer.configure(cameraMovie(path));
    writer.startWriting();

    V4L2CameraCaptureEngine engine;
    engine.setupCamera(testCamera);
    engine.configureSeparateWriter(&writer);
    FrameLog previews;
    engine.setFrameHandler([&](const VideoFrame& frame) { previews.add(frame); });
    engine.startCapture();
    ASSERT_TRUE(waitUntil([&] { return engine.cameraFrameCount() >= 3; }, 5s));
    EXPECT_FALSE(writer.lastPresentationTime().has_value()) << "a frame came before the screen";

    const MediaTime screenStart = MediaTime::hostTimeNow();
    engine.startWriterSessionIfNeeded(screenStart);
    engine.startWriterSessionIfNeeded(screenStart + MediaTime::make(1, 2));
    EXPECT_EQ(engine.syncedSessionStartTime(), screenStart);
    ASSERT_TRUE(waitUntil([&] { return writer.lastPresentationTime().has_value(); }, 5s));
    std::this_thread::sleep_for(400ms);

    engine.setRecordingPaused(true);
    std::this_thread::sleep_for(100ms); // a frame in flight may still land
    const auto pausedAt = writer.lastPresentationTime();
    const size_t previewsAtPause = previews.count();
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(writer.lastPresentationTime(), pausedAt);
    EXPECT_GT(previews.count(), previewsAtPause + 5);
    engine.stopCapture();

    const QString written = QCoro::waitFor(writer.finishWriting());
    const auto video = probeVideo(written.toStdString());
    ASSERT_TRUE(video);
    ASSERT_FALSE(video->packetTimes.empty());
    EXPECT_LE(video->packetTimes.front(), 1.0 / 30);
    EXPECT_NEAR(video->endSeconds, 0.5, 0.15);
}

// Movie files begin at their first frame, so the camera layer's first frame must sit exactly at
// the screen's first frame, whenever the camera's own frames happen to arrive.
TEST_F(V4L2CameraCaptureEngineTest, CameraLayerStartsAtTheScreensFirstFrame) {
    for (const bool cameraFirst : {true, false}) {
        TimingWriter writer;
        V4L2CameraCaptureEngine engine;
        engine.setupCamera(testCamera);
        engine.configureSeparateWriter(&writer);
        engine.startCapture();
        if (cameraFirst) {
            ASSERT_TRUE(waitUntil([&] { return engine.cameraFrameCount() >= 2; }, 5s));
        }
        const MediaTime screenStart = MediaTime::hostTimeNow();
        engine.startWriterSessionIfNeeded(screenStart);
        ASSERT_TRUE(waitUntil(
            [&] {
                std::lock_guard lock(writer.mutex);
                return writer.times.size() >= 3;
            },
            5s));
        engine.cleanup();
        std::lock_guard lock(writer.mutex);
        EXPECT_EQ(writer.times.front(), screenStart) << "camera first: " << cameraFirst;
        for (size_t i = 1; i < writer.times.size(); ++i)
            EXPECT_GT(writer.times[i], writer.times[i - 1]);
    }
}

// A size asked for is the size the camera delivers and the layer is made at.
TEST_F(V4L2CameraCaptureEngineTest, AskedSizeIsDelivered) {
    V4L2CameraCaptureEngine engine(CameraInput::Options{VideoDimensions{640, 360}});
    engine.setupCamera(testCamera);
    EXPECT_EQ(engine.activeVideoDimensions(), (VideoDimensions{640, 360}));
    FrameLog frames;
    engine.setFrameHandler([&](const VideoFrame& frame) { frames.add(frame); });
    engine.startCapture();
    ASSERT_TRUE(waitUntil([&] { return frames.count() >= 1; }, 5s));
    engine.stopCapture();
    std::lock_guard lock(frames.m_mutex);
    EXPECT_EQ(frames.last.width(), 640);
    EXPECT_EQ(frames.last.height(), 360);
}
