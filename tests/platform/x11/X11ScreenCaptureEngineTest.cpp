#include "platform/x11/X11ScreenCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "media/VideoFrame.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ShareableContent.h"

#include "MappedWindow.h"

#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/ScopedEnvironment.h"
#include "support/ScreenAnimation.h"
#include "support/TaskRunner.h"
#include "support/XvfbSession.h"

#include <gtest/gtest.h>

#include <mutex>

using namespace std::chrono_literals;

namespace {

// What the engine handed on, kept for the test thread.
struct FrameLog {
    std::mutex mutex;
    std::vector<MediaTime> times;
    std::vector<std::pair<int, int>> sizes;
    VideoFrame last;

    void add(const VideoFrame& frame, const VideoSampleInfo& info) {
        std::lock_guard lock(mutex);
        times.push_back(info.presentationTime);
        sizes.emplace_back(frame.width(), frame.height());
        last = frame;
    }
    size_t count() {
        std::lock_guard lock(mutex);
        return times.size();
    }
    VideoFrame lastFrame() {
        std::lock_guard lock(mutex);
        return last;
    }
};

uint32_t pixelAt(const VideoFrame& frame, int x, int y) {
    uint32_t value = 0;
    std::memcpy(&value, frame.bytes() + size_t(y) * frame.bytesPerRow() + size_t(x) * 4, 4);
    return value;
}

constexpr uint32_t opaqueRed = 0xffff0000u; // BGRA in memory reads as 0xAARRGGBB

XvfbSession::Options smallScreen() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    return options;
}

RecordingConfiguration configurationFor(const RecordingMode& mode,
                                        BackgroundType background = BackgroundType::black) {
    RecordingConfiguration configuration(mode, QStringLiteral("/tmp"));
    configuration.backgroundColor = background;
    return configuration;
}

// An engine prepared for a mode on the session's X server, frames going to `log`.
std::unique_ptr<X11ScreenCaptureEngine>
prepared(const RecordingMode& mode, FrameLog& log, int frameRate = 30,
         ResolutionMode resolution = ResolutionMode::normal, bool showCursor = false,
         BackgroundType background = BackgroundType::black, QByteArray hiddenApps = {}) {
    auto engine = std::make_unique<X11ScreenCaptureEngine>(std::move(hiddenApps));
    engine->updateAvailableContent();
    auto filter = engine->createFilter(mode, configurationFor(mode, background));
    engine->configureStream(filter, mode, resolution, frameRate, showCursor, background, false);
    engine->setFrameHandler(
        [&log](const VideoFrame& frame, const VideoSampleInfo& info) { log.add(frame, info); });
    return engine;
}

SCDisplay firstDisplay() {
    X11Connection connection;
    return X11ShareableContent::fetch(connection).displays.front();
}

} // namespace

// Sizes are cut to whole points before scaling, and the product is cut again; frame rates
// outside 15...60 are clamped.
TEST(X11ScreenCaptureEngineTest, StreamSizeAndFrameRateRules) {
    // 1001.7 points -> 1001; x 0.5 = 500.5 -> 500. 601.9 -> 601; x 0.5 = 300.5 -> 300.
    EXPECT_EQ(X11ScreenCaptureEngine::streamSize(Size{1001.7, 601.9}, 1.0, 0.5),
              (SCStreamConfiguration{500, 300}));
    // A point scale of 2 ("high") doubles the whole points: 1001 x 2 = 2002.
    EXPECT_EQ(X11ScreenCaptureEngine::streamSize(Size{1001.7, 601.9}, 2.0, 1.0),
              (SCStreamConfiguration{2002, 1202}));
    EXPECT_EQ(X11ScreenCaptureEngine::clampFrameRate(10), 15);
    EXPECT_EQ(X11ScreenCaptureEngine::clampFrameRate(120), 60);
    EXPECT_EQ(X11ScreenCaptureEngine::clampFrameRate(30), 30);
    EXPECT_EQ(X11ScreenCaptureEngine::resolutionScale(ResolutionMode::low), 0.5);
    EXPECT_EQ(X11ScreenCaptureEngine::resolutionScale(ResolutionMode::high), 1.0);
}

// Without content, and before configuring, the engine refuses with the described reasons.
TEST(X11ScreenCaptureEngineTest, RefusesOutOfOrderUse) {
    X11ScreenCaptureEngine engine;
    const RecordingMode mode = RecordingMode::screen(SCDisplay{1, Rect(0, 0, 640, 480), 1.0});
    try {
        engine.createFilter(mode, configurationFor(mode));
        FAIL() << "a filter without content";
    } catch (const RecordingError& error) {
        EXPECT_NE(error.errorDescription().indexOf(QStringLiteral("Available content not loaded")),
                  -1);
    }
    const TaskOutcome start = runTask(engine.startCapture());
    ASSERT_TRUE(start.finished);
    EXPECT_TRUE(start.error);
    EXPECT_FALSE(engine.configuration().has_value());
    EXPECT_FALSE(engine.captureRectInScreenSpace().has_value());
}

// A display recording while the screen changes: frames of the display's size, in increasing
// time, opaque, and none after stopCapture.
TEST(X11ScreenCaptureEngineTest, DisplayFramesWhileTheScreenChanges) {
    REQUIRE_XVFB(smallScreen());
    XvfbSession session(smallScreen());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    FrameLog log;
    const SCDisplay display = firstDisplay();
    auto engine = prepared(RecordingMode::screen(display), log);
    EXPECT_EQ(engine->configuration(), (SCStreamConfiguration{640, 480}));
    EXPECT_EQ(engine->captureRectInScreenSpace(), Rect(0, 0, 640, 480));

    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    EXPECT_TRUE(engine->isCapturing());
    EXPECT_TRUE(waitUntil([&] { return log.count() >= 20; }, 5s)) << log.count() << " frames";
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_FALSE(engine->isCapturing());
    const size_t afterStop = log.count();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(log.count(), afterStop);

    std::lock_guard lock(log.mutex);
    for (size_t i = 1; i < log.times.size(); ++i)
        ASSERT_LT(log.times[i - 1], log.times[i]) << "frame " << i;
    for (const auto& size : log.sizes)
        ASSERT_EQ(size, std::make_pair(640, 480));
    // The padding byte of the server's pixels never reaches the file as transparency.
    EXPECT_EQ(pixelAt(log.last, 5, 5) >> 24, 0xffu);
    // At 30 frames per second the spacing is about 33 ms; a stall would show as a big gap.
    const double span = (log.times.back() - log.times.front()).seconds();
    EXPECT_LT(span / double(log.times.size() - 1), 0.1);
}

// A still screen gives its first frame and then idle ticks, not repeats.
TEST(X11ScreenCaptureEngineTest, StillScreenDropsIdleTicks) {
    REQUIRE_XVFB(smallScreen());
    XvfbSession session(smallScreen());
    ASSERT_TRUE(session.isReady()) << session.error();
    FrameLog log;
    auto engine = prepared(RecordingMode::screen(firstDisplay()), log);
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    std::this_thread::sleep_for(700ms);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    // 0.7 s at 30 per second is about 21 ticks; only the first carries content (and maybe a
    // second, should the server still be drawing its start-up picture), and one more closes
    // the recording at the moment of the stop.
    EXPECT_GE(log.count(), 2u);
    EXPECT_LE(log.count(), 3u);
    std::lock_guard lock(log.mutex);
    EXPECT_GT((log.times.back() - log.times.front()).seconds(), 0.6);
    EXPECT_GE(engine->idleFrameCount(), 15);
}

// An area shows exactly its part of the screen: a red window partly inside it lands at the
// offset of the area, and what lies outside the window is not red. Checked with shared memory
// and with the plain GetImage path.
TEST(X11ScreenCaptureEngineTest, AreaPixelsLandInPlace) {
    REQUIRE_XVFB(smallScreen());
    REQUIRE_TOOL("xmessage");
    for (const bool sharedMemory : {true, false}) {
        SCOPED_TRACE(sharedMemory ? "shared memory" : "GetImage");
        ScopedEnvironment noShm("TAVELQUISTON_NO_SHM",
                                sharedMemory ? std::nullopt : std::optional<std::string>("1"));
        XvfbSession session(smallScreen());
        ASSERT_TRUE(session.isReady()) << session.error();
        // Without a window manager the window sits exactly at +100+100, 300 x 200.
        session.launch(
            {"xmessage", "-bg", "red", "-fg", "red", "-geometry", "300x200+100+100", " "});

        // In top-left pixels the area is x 150...450, y 120...320; in the mode's convention it
        // counts from the display's bottom left: y = 480 - 120 - 200 = 160.
        const SCDisplay display = firstDisplay();
        const RecordingMode mode = RecordingMode::screenArea(display, Rect(150, 160, 300, 200));
        FrameLog log;
        auto engine = prepared(mode, log);
        EXPECT_EQ(engine->configuration(), (SCStreamConfiguration{300, 200}));
        EXPECT_EQ(engine->captureRectInScreenSpace(), Rect(150, 160, 300, 200));
        ASSERT_TRUE(runTask(engine->startCapture()).finished);
        // The window covers root x 100...400, y 100...300, so area pixels x 0...250,
        // y 0...180; its middle part (away from border and button) is red.
        const bool sawWindow = waitUntil(
            [&] {
                const VideoFrame frame = log.lastFrame();
                return !frame.isNull() && pixelAt(frame, 40, 30) == opaqueRed;
            },
            5s);
        ASSERT_TRUE(runTask(engine->stopCapture()).finished);
        ASSERT_TRUE(sawWindow) << "the red window never showed at the area's offset";
        EXPECT_EQ(engine->usesSharedMemory(), sharedMemory);
        const VideoFrame frame = log.lastFrame();
        ASSERT_EQ(frame.width(), 300);
        ASSERT_EQ(frame.height(), 200);
        // Area pixel (280, 190) is root (430, 310): right of and below the window.
        EXPECT_NE(pixelAt(frame, 280, 190), opaqueRed);
    }
}

// "low" halves the stream and scales the picture into it.
TEST(X11ScreenCaptureEngineTest, LowResolutionHalvesTheFrames) {
    REQUIRE_XVFB(smallScreen());
    XvfbSession session(smallScreen());
    ASSERT_TRUE(session.isReady()) << session.error();
    FrameLog log;
    auto engine = prepared(RecordingMode::screen(firstDisplay()), log, 30, ResolutionMode::low);
    EXPECT_EQ(engine->configuration(), (SCStreamConfiguration{320, 240}));
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    EXPECT_TRUE(waitUntil([&] { return log.count() >= 1; }, 5s));
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    std::lock_guard lock(log.mutex);
    ASSERT_FALSE(log.sizes.empty());
    EXPECT_EQ(log.sizes.front(), std::make_pair(320, 240));
}

// When the X server goes away the error handler hears of it and capture ends.
TEST(X11ScreenCaptureEngineTest, ServerGoneReachesTheErrorHandler) {
    REQUIRE_XVFB(smallScreen());
    auto session = std::make_unique<XvfbSession>(smallScreen());
    ASSERT_TRUE(session->isReady()) << session->error();
    FrameLog log;
    auto engine = prepared(RecordingMode::screen(firstDisplay()), log);
    std::atomic<int> errors{0};
    std::mutex errorMutex;
    StreamError reported;
    engine->setErrorHandler([&](const StreamError& error) {
        std::lock_guard lock(errorMutex);
        reported = error;
        ++errors;
    });
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    EXPECT_TRUE(waitUntil([&] { return log.count() >= 1; }, 5s));
    session.reset(); // stops Xvfb
    EXPECT_TRUE(waitUntil([&] { return errors.load() > 0; }, 5s));
    EXPECT_FALSE(engine->isCapturing());
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_EQ(errors.load(), 1);
    std::lock_guard lock(errorMutex);
    EXPECT_EQ(reported.domain, QStringLiteral("X11"));
}

// A captured window that closes stops the stream through the error handler.
TEST(X11ScreenCaptureEngineTest, WindowGoneReachesTheErrorHandler) {
    XvfbSession::Options options = smallScreen();
    options.windowManager = true;
    REQUIRE_XVFB(options);
    REQUIRE_TOOL("xmessage");
    XvfbSession session(options);
    ASSERT_TRUE(session.isReady()) << session.error();
    ChildProcess& client = session.launch({"xmessage", "-geometry", "200x100+50+50", "bye"});
    X11Connection connection;
    const auto listed = contentWithMappedWindow(connection);
    ASSERT_TRUE(listed) << "the window never showed as listed and mapped";
    const SCShareableContent& content = *listed;

    FrameLog log;
    const RecordingMode mode = RecordingMode::window(content.windows.front());
    auto engine = prepared(mode, log);
    // The stream has the window's size with its decorations.
    const SCStreamConfiguration size = *engine->configuration();
    EXPECT_EQ(size.width, int(content.windows.front().frame.width()));
    EXPECT_EQ(engine->captureRectInScreenSpace(), content.windows.front().frame);
    std::atomic<int> errors{0};
    std::atomic<int> code{0};
    engine->setErrorHandler([&](const StreamError& error) {
        code = error.code;
        ++errors;
    });
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    EXPECT_TRUE(waitUntil([&] { return log.count() >= 1; }, 5s));
    EXPECT_EQ(log.lastFrame().width(), size.width);
    client.stop();
    EXPECT_TRUE(waitUntil([&] { return errors.load() > 0; }, 5s));
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_EQ(errors.load(), 1);
    EXPECT_EQ(code.load(), 2);
}

// With showsCursor the pointer's image is drawn where the pointer is, and moving it makes a
// new frame on an otherwise still screen; without, the picture stays the root's.
TEST(X11ScreenCaptureEngineTest, CursorIsDrawnWhenAskedFor) {
    REQUIRE_XVFB(smallScreen());
    REQUIRE_TOOL("xdotool");
    XvfbSession session(smallScreen());
    ASSERT_TRUE(session.isReady()) << session.error();
    ASSERT_TRUE(session.moveTo(200, 150));
    // A 40 x 40 area around the pointer: area (20, 20) is the pointer's hot spot. In the
    // mode's convention y = 480 - 130 - 40 = 310.
    const RecordingMode mode = RecordingMode::screenArea(firstDisplay(), Rect(180, 310, 40, 40));
    auto differingPixels = [](const VideoFrame& a, const VideoFrame& b) {
        int count = 0;
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x)
                count += pixelAt(a, x, y) != pixelAt(b, x, y);
        return count;
    };

    FrameLog plain;
    auto without = prepared(mode, plain);
    ASSERT_TRUE(runTask(without->startCapture()).finished);
    ASSERT_TRUE(waitUntil([&] { return plain.count() >= 1; }, 5s));
    ASSERT_TRUE(runTask(without->stopCapture()).finished);

    FrameLog drawn;
    auto with = prepared(mode, drawn, 30, ResolutionMode::normal, true);
    ASSERT_TRUE(runTask(with->startCapture()).finished);
    ASSERT_TRUE(waitUntil([&] { return drawn.count() >= 1; }, 5s));
    const size_t before = drawn.count();
    ASSERT_TRUE(session.moveTo(205, 152));
    const bool moved = waitUntil([&] { return drawn.count() > before; }, 3s);
    ASSERT_TRUE(runTask(with->stopCapture()).finished);
    EXPECT_TRUE(moved) << "a pointer move made no frame";
    // The pointer image covers some dozens of pixels.
    EXPECT_GT(differingPixels(plain.lastFrame(), drawn.lastFrame()), 20);
}

// A recorded window made larger than the stream is first shown smaller, then the stream grows
// by the inverse of that scale and the frames come at the new size.
TEST(X11ScreenCaptureEngineTest, GrownWindowEnlargesTheStream) {
    XvfbSession::Options options = smallScreen();
    options.windowManager = true;
    REQUIRE_XVFB(options);
    REQUIRE_TOOL("xmessage");
    REQUIRE_TOOL("xdotool");
    XvfbSession session(options);
    ASSERT_TRUE(session.isReady()) << session.error();
    session.launch({"xmessage", "-geometry", "200x100+20+20", "grow"});
    X11Connection connection;
    const auto listed = contentWithMappedWindow(connection);
    ASSERT_TRUE(listed) << "the window never showed as listed and mapped";
    const SCWindow shown = listed->windows.front();
    FrameLog log;
    auto engine = prepared(RecordingMode::window(shown), log);
    const SCStreamConfiguration before = *engine->configuration();
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    ASSERT_TRUE(waitUntil([&] { return log.count() >= 1; }, 5s));

    // The client becomes 60 pixels wider and taller than the whole frame was, so the frame
    // grows by more than 60 in both directions whatever the decorations.
    const SCWindow& window = shown;
    const int width = int(window.frame.width()) + 60;
    const int height = int(window.frame.height()) + 60;
    ChildProcess resize({"xdotool", "windowsize", std::to_string(window.windowID),
                         std::to_string(width), std::to_string(height)},
                        {});
    ASSERT_EQ(resize.waitForExit(5s), 0);
    const bool grew = waitUntil([&] { return log.lastFrame().width() > before.width; }, 5s);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    ASSERT_TRUE(grew) << "frames stayed " << log.lastFrame().width() << " wide";
    const SCStreamConfiguration after = *engine->configuration();
    EXPECT_GT(after.width, before.width + 60);
    EXPECT_GT(after.height, before.height + 60);
    EXPECT_EQ(log.lastFrame().width(), after.width);
}
