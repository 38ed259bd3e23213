#include "platform/x11/X11ScreenCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "media/IdleBufferTrim.h"
#include "media/VideoFrame.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11RootGrabber.h"
#include "platform/x11/X11ShareableContent.h"

#include "MappedWindow.h"

#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/ScopedEnvironment.h"
#include "support/ScreenAnimation.h"
#include "support/SharedMemoryEviction.h"
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

    void add(const VideoFrame& frame, const VideoSampleTiming& timing) {
        std::lock_guard lock(mutex);
        times.push_back(timing.presentationTime);
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

uint32_t rawPixelAt(const VideoFrame& frame, int x, int y) {
    uint32_t value = 0;
    std::memcpy(&value, frame.bytes() + size_t(y) * frame.bytesPerRow() + size_t(x) * 4, 4);
    return value;
}

// The colour as a consumer sees it: a frame without alpha is opaque whatever its fourth byte.
uint32_t pixelAt(const VideoFrame& frame, int x, int y) {
    const uint32_t value = rawPixelAt(frame, x, y);
    return frame.hasAlpha() ? value : value | 0xff000000u;
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
    engine->setFrameHandler([&log](const VideoFrameHandle& frame, const VideoSampleTiming& timing) {
        log.add(*frame, timing);
    });
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
    START_XVFB(session, smallScreen());
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
    // The padding byte of the server's pixels is never taken for transparency: either it is
    // made opaque or the frame says it carries no alpha.
    EXPECT_TRUE(!log.last.hasAlpha() || rawPixelAt(log.last, 5, 5) >> 24 == 0xffu);
    // At 30 frames per second the spacing is about 33 ms; a stall would show as a big gap.
    const double span = (log.times.back() - log.times.front()).seconds();
    EXPECT_LT(span / double(log.times.size() - 1), 0.1);
}

// Grabs go straight into frame buffers shared with the server. When the writer holds on to all
// of them the capture goes on by copying, and buffers given back are used again.
TEST(X11ScreenCaptureEngineTest, FramesHeldDownstreamNeverStallTheCapture) {
    START_XVFB(session, smallScreen());
    ScreenAnimation animation;

    std::mutex mutex;
    std::vector<VideoFrame> held;
    bool holding = true;
    std::vector<bool> direct; // per frame: written by the server into its own buffer
    auto engine = std::make_unique<X11ScreenCaptureEngine>();
    engine->updateAvailableContent();
    const RecordingMode mode = RecordingMode::screen(firstDisplay());
    engine->configureStream(engine->createFilter(mode, configurationFor(mode)), mode,
                            ResolutionMode::normal, 60, false, BackgroundType::black, false);
    engine->setFrameHandler([&](const VideoFrameHandle& handle, const VideoSampleTiming&) {
        const VideoFrame& frame = *handle;
        std::lock_guard lock(mutex);
        direct.push_back(!frame.hasAlpha());
        if (holding)
            held.push_back(frame);
    });
    const auto frames = [&] {
        std::lock_guard lock(mutex);
        return direct.size();
    };
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    const size_t pastAllBuffers = X11RootGrabber::maxFrameSegments + 8;
    const bool kept = waitUntil([&] { return frames() >= pastAllBuffers; }, 10s);
    {
        std::lock_guard lock(mutex);
        holding = false;
        held.clear();
    }
    const size_t released = frames();
    const bool reused = waitUntil([&] { return frames() >= released + 5; }, 10s);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    ASSERT_TRUE(kept) << "the capture stopped with every buffer held";
    ASSERT_TRUE(reused);

    std::lock_guard lock(mutex);
    ASSERT_TRUE(engine->usesSharedMemory());
    for (size_t i = 0; i < X11RootGrabber::maxFrameSegments; ++i)
        EXPECT_TRUE(direct[i]) << "frame " << i;
    for (size_t i = X11RootGrabber::maxFrameSegments; i < pastAllBuffers; ++i)
        EXPECT_FALSE(direct[i]) << "frame " << i << " while every buffer was held";
    EXPECT_TRUE(direct.back()) << "buffers given back are not used again";
}

// After a burst that held many buffers, those left idle through a whole window are given back
// to the system but for a few spares, and grabbing goes on into the ones kept or made anew.
TEST(X11ScreenCaptureEngineTest, BuffersABurstLeftIdleAreGivenBack) {
    REQUIRE_XVFB(smallScreen());
    XvfbSession session(smallScreen());
    ASSERT_TRUE(session.isReady()) << session.error();
    X11Connection connection;
    constexpr auto window = 40ms;
    X11RootGrabber grabber(connection.get(), connection.root(), X11Rect{0, 0, 64, 48}, window);
    const auto grab = [&] { return grabber.grabFrame(MediaTime::zero(), MediaTime::make(1, 30)); };
    {
        std::vector<VideoFrame> burst;
        for (int i = 0; i < 10; ++i)
            burst.push_back(grab());
        ASSERT_FALSE(burst.back().isNull()) << "no shared memory";
        EXPECT_EQ(grabber.frameSegmentCount(), 10u);
    }
    for (int round = 0; round < 3; ++round) {
        std::this_thread::sleep_for(window + 10ms);
        std::vector<VideoFrame> inUse;
        for (int i = 0; i < 3; ++i) {
            inUse.push_back(grab());
            ASSERT_FALSE(inUse.back().isNull()) << "round " << round;
        }
    }
    EXPECT_LE(grabber.frameSegmentCount(), 3u + IdleBufferTrim::spareBuffers);
    // A new burst fills the places given back.
    std::vector<VideoFrame> again;
    for (int i = 0; i < 8; ++i)
        again.push_back(grab());
    EXPECT_FALSE(again.back().isNull());
    EXPECT_EQ(grabber.frameSegmentCount(), 8u);
}

// A still screen gives its first frame and then idle ticks, with a repeat only twice a second.
TEST(X11ScreenCaptureEngineTest, StillScreenDropsIdleTicks) {
    START_XVFB(session, smallScreen());
    FrameLog log;
    auto engine = prepared(RecordingMode::screen(firstDisplay()), log);
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    std::this_thread::sleep_for(700ms);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    // 0.7 s at 30 per second is about 21 ticks; only the first carries content (and maybe a
    // second, should the server still be drawing its start-up picture), one comes half a
    // second later so that the file on disk keeps up, and one more closes the recording at the
    // moment of the stop.
    EXPECT_GE(log.count(), 3u);
    EXPECT_LE(log.count(), 4u);
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
    START_XVFB(session, smallScreen());
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

// The server drops the shared memory the screen is grabbed through, mid-stream (here another
// client detaches it): the error handler hears of it once and capture ends, without a frame
// made of stale memory. Started again, as the recovery does, the stream attaches new segments
// and its frames show the screen; each loss is its own interruption.
TEST(X11ScreenCaptureEngineTest, SharedMemoryLostMidStreamStopsOnceAndRestarts) {
    START_XVFB(session, smallScreen());
    REQUIRE_NOTHING_MISSING(sharedMemoryEvictionMissing());
    ScreenAnimation animation;
    FrameLog log;
    auto engine = prepared(RecordingMode::screen(firstDisplay()), log);
    std::vector<StreamError> reported;
    std::mutex errorMutex;
    engine->setErrorHandler([&](const StreamError& error) {
        std::lock_guard lock(errorMutex);
        reported.push_back(error);
    });
    const auto errorCount = [&] {
        std::lock_guard lock(errorMutex);
        return reported.size();
    };

    for (size_t loss = 1; loss <= 2; ++loss) {
        SCOPED_TRACE(loss);
        ASSERT_TRUE(runTask(engine->startCapture()).finished);
        const size_t started = log.count();
        ASSERT_TRUE(waitUntil([&] { return log.count() >= started + 5; }, 5s))
            << "no frames after the start";
        ASSERT_TRUE(engine->usesSharedMemory());

        const SharedMemoryEviction eviction = detachEverySharedMemorySegment();
        ASSERT_TRUE(eviction.error.empty()) << eviction.error;
        ASSERT_GE(eviction.detached, 1);
        ASSERT_TRUE(waitUntil([&] { return errorCount() >= loss; }, 5s))
            << "the loss went unnoticed";
        EXPECT_FALSE(engine->isCapturing());
        const size_t atError = log.count();
        std::this_thread::sleep_for(300ms);
        EXPECT_EQ(log.count(), atError) << "frames after the stream reported its end";
        EXPECT_EQ(errorCount(), loss);
        std::lock_guard lock(errorMutex);
        EXPECT_EQ(reported.back().domain, QStringLiteral("X11"));
        EXPECT_NE(reported.back().description.indexOf(QStringLiteral("shared memory")), -1);
    }
    // Once more, and it keeps going.
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    const size_t restarted = log.count();
    ASSERT_TRUE(waitUntil([&] { return log.count() >= restarted + 10; }, 5s));
    {
        const VideoFrame frame = log.lastFrame();
        ASSERT_EQ(frame.width(), 640);
        // The animation paints the whole screen in one of two colours, never black.
        EXPECT_NE(pixelAt(frame, 320, 240) & 0xffffffu, 0u);
    }
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_EQ(errorCount(), 2u);
}

// A captured window that closes stops the stream through the error handler.
TEST(X11ScreenCaptureEngineTest, WindowGoneReachesTheErrorHandler) {
    XvfbSession::Options options = smallScreen();
    options.windowManager = true;
    START_XVFB(session, options);
    REQUIRE_TOOL("xmessage");
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
    START_XVFB(session, smallScreen());
    REQUIRE_TOOL("xdotool");
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
    START_XVFB(session, options);
    REQUIRE_TOOL("xmessage");
    REQUIRE_TOOL("xdotool");
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

namespace {

constexpr uint32_t opaqueGreen = 0xff00ff00u;
constexpr uint32_t opaqueBlue = 0xff0000ffu;
constexpr uint32_t opaqueBlack = 0xff000000u;

XvfbSession::Options managedSmallScreen() {
    XvfbSession::Options options = smallScreen();
    options.windowManager = true;
    return options;
}

// The pixel of a display-sized frame at the middle of a frame in root pixels. The frames in
// these tests are at least 100 high, so the middle lies below any title bar, in the client.
// Nothing (0) before the first frame.
uint32_t middleOf(const VideoFrame& frame, const X11Rect& place) {
    if (frame.isNull())
        return 0;
    return pixelAt(frame, place.x + place.width / 2, place.y + place.height / 2);
}

SCWindow listedWindow(X11Connection& connection, xcb_window_t id) {
    for (const SCWindow& window : X11ShareableContent::fetch(connection).windows)
        if (window.windowID == id)
            return window;
    return SCWindow{};
}

// Counts the errors an engine reports.
struct ErrorCount {
    std::atomic<int> count{0};
    void watch(X11ScreenCaptureEngine& engine) {
        engine.setErrorHandler([this](const StreamError&) { ++count; });
    }
};

} // namespace

// Recorded windows are shown on the whole display at the place they have now: one moved
// during the recording shows at its new place, and its old place shows the background.
TEST(X11ScreenCaptureEngineTest, WindowsModeShowsWindowsWhereTheyAreNow) {
    START_XVFB(session, managedSmallScreen());
    ColouredWindow red(0xff0000, {40, 40, 160, 100}, "painter");
    ColouredWindow green(0x00ff00, {360, 40, 160, 100}, "painter");
    X11Connection connection;
    const auto redPlace = listedFrame(connection, red.id());
    const auto greenPlace = listedFrame(connection, green.id());
    ASSERT_TRUE(redPlace && greenPlace) << "the windows never showed";

    const SCWindow redWindow = listedWindow(connection, red.id());
    const SCWindow greenWindow = listedWindow(connection, green.id());
    FrameLog log;
    ErrorCount errors;
    auto engine = prepared(RecordingMode::windows({redWindow, greenWindow}), log);
    errors.watch(*engine);
    EXPECT_EQ(engine->configuration(), (SCStreamConfiguration{640, 480}));
    // Both frames lie in the top band of the screen: the union spans from the red one's left
    // to the green one's right, and the taller of the two.
    const Rect& a = redWindow.frame;
    const Rect& b = greenWindow.frame;
    EXPECT_EQ(engine->captureRectInScreenSpace(),
              Rect(a.minX(), std::min(a.minY(), b.minY()), b.maxX() - a.minX(),
                   std::max(a.maxY(), b.maxY()) - std::min(a.minY(), b.minY())));

    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    const bool bothShown = waitUntil(
        [&] {
            const VideoFrame frame = log.lastFrame();
            return !frame.isNull() && middleOf(frame, *redPlace) == opaqueRed &&
                   middleOf(frame, *greenPlace) == opaqueGreen;
        },
        5s);
    EXPECT_TRUE(bothShown) << "the windows never showed at their places";
    EXPECT_EQ(log.lastFrame().width(), 640);

    red.moveTo(220, 320);
    const auto moved = listedFrame(connection, red.id(), redPlace);
    ASSERT_TRUE(moved) << "the window manager never moved the window";
    const bool followed = waitUntil(
        [&] {
            const VideoFrame frame = log.lastFrame();
            return middleOf(frame, *moved) == opaqueRed &&
                   middleOf(frame, *redPlace) == opaqueBlack &&
                   middleOf(frame, *greenPlace) == opaqueGreen;
        },
        5s);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_TRUE(followed) << "the moved window did not show at its new place only";
    EXPECT_EQ(errors.count.load(), 0);
}

// An application's windows opened during the recording appear, one that closes simply goes,
// and another application's window never shows.
TEST(X11ScreenCaptureEngineTest, ApplicationModeFollowsTheApplicationsWindows) {
    START_XVFB(session, managedSmallScreen());
    auto first = std::make_unique<ColouredWindow>(0xff0000, X11Rect{40, 40, 160, 100}, "painter");
    ColouredWindow other(0x0000ff, {360, 40, 160, 100}, "otherapp");
    X11Connection connection;
    const auto firstPlace = listedFrame(connection, first->id());
    const auto otherPlace = listedFrame(connection, other.id());
    ASSERT_TRUE(firstPlace && otherPlace) << "the windows never showed";

    FrameLog log;
    ErrorCount errors;
    auto engine = prepared(RecordingMode::application({SCRunningApplication{
                               QStringLiteral("painter"), QStringLiteral("Painter"), 0}}),
                           log);
    errors.watch(*engine);
    EXPECT_EQ(engine->configuration(), (SCStreamConfiguration{640, 480}));
    EXPECT_EQ(engine->captureRectInScreenSpace(), Rect(0, 0, 640, 480));
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    EXPECT_TRUE(waitUntil([&] { return middleOf(log.lastFrame(), *firstPlace) == opaqueRed; }, 5s))
        << "the application's window never showed";

    ColouredWindow second(0x00ff00, {200, 300, 160, 100}, "painter");
    const auto secondPlace = listedFrame(connection, second.id());
    ASSERT_TRUE(secondPlace) << "the second window never showed";
    EXPECT_TRUE(
        waitUntil([&] { return middleOf(log.lastFrame(), *secondPlace) == opaqueGreen; }, 5s))
        << "a window opened during the recording never showed";

    first.reset();
    const bool closed = waitUntil(
        [&] {
            const VideoFrame frame = log.lastFrame();
            return middleOf(frame, *firstPlace) == opaqueBlack &&
                   middleOf(frame, *secondPlace) == opaqueGreen;
        },
        5s);
    EXPECT_TRUE(closed) << "the closed window stayed in the picture";
    EXPECT_TRUE(engine->isCapturing());
    EXPECT_NE(middleOf(log.lastFrame(), *otherPlace), opaqueBlue);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_EQ(errors.count.load(), 0);
}

// A hidden application's windows never show in a display recording: not where they were at the
// start, not on the way while one moves, not at its new place, and not one opened later. The
// place one left shows what is really there again.
TEST(X11ScreenCaptureEngineTest, HiddenApplicationStaysPaintedOutWhereverItGoes) {
    START_XVFB(session, managedSmallScreen());
    ColouredWindow backdrop(0x00ff00, {10, 10, 600, 440}, "backdrop");
    X11Connection connection;
    ASSERT_TRUE(listedFrame(connection, backdrop.id()));
    ColouredWindow secret(0xff0000, {100, 100, 160, 100}, "secret");
    const auto secretPlace = listedFrame(connection, secret.id());
    ASSERT_TRUE(secretPlace) << "the hidden window never showed";

    FrameLog log;
    std::atomic<int> framesWithRed{0};
    auto engine =
        prepared(RecordingMode::screen(firstDisplay()), log, 30, ResolutionMode::normal, false,
                 BackgroundType::black, R"([{"bundleID":"secret","name":"Secret"}])");
    engine->setFrameHandler([&](const VideoFrameHandle& handle, const VideoSampleTiming& timing) {
        const VideoFrame& frame = *handle;
        for (int y = 0; y < frame.height(); ++y)
            for (int x = 0; x < frame.width(); ++x)
                if (pixelAt(frame, x, y) == opaqueRed) {
                    ++framesWithRed;
                    y = frame.height();
                    break;
                }
        log.add(frame, timing);
    });
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    ASSERT_TRUE(waitUntil([&] { return log.count() >= 1; }, 5s));
    // Without a wallpaper the stream's black stands for what lies under hidden windows.
    EXPECT_EQ(middleOf(log.lastFrame(), *secretPlace), opaqueBlack);

    // Moved in steps, so that frames are taken while it travels.
    for (int step = 1; step <= 5; ++step) {
        secret.moveTo(100 + step * 50, 100 + step * 30);
        processEventsFor(40ms);
    }
    const auto moved = listedFrame(connection, secret.id(), secretPlace);
    ASSERT_TRUE(moved);
    const bool repainted = waitUntil(
        [&] {
            const VideoFrame frame = log.lastFrame();
            return middleOf(frame, *moved) == opaqueBlack &&
                   middleOf(frame, *secretPlace) == opaqueGreen;
        },
        5s);
    EXPECT_TRUE(repainted) << "the old place does not show the window below, or the new one "
                              "shows the hidden window";

    const size_t before = log.count();
    ColouredWindow later(0xff0000, {60, 300, 120, 100}, "secret");
    ASSERT_TRUE(listedFrame(connection, later.id()));
    // Mapping it changed the screen, so frames followed.
    EXPECT_TRUE(waitUntil([&] { return log.count() > before; }, 5s));
    processEventsFor(200ms);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_EQ(framesWithRed.load(), 0) << "of " << log.count() << " frames";
}

// A lone recorded window is the picture wherever it goes, and so is the pointer over it: after
// the window has moved, the pointer at 60, 50 from its frame's corner is drawn at 60, 50 of the
// picture, not where that point was before the move.
TEST(X11ScreenCaptureEngineTest, PointerOverAFollowedWindowMovesWithIt) {
    START_XVFB(session, managedSmallScreen());
    REQUIRE_TOOL("xdotool");
    ColouredWindow red(0xff0000, {40, 40, 160, 100}, "painter");
    X11Connection connection;
    const auto start = listedFrame(connection, red.id());
    ASSERT_TRUE(start) << "the window never showed";
    FrameLog log;
    auto engine = prepared(RecordingMode::window(listedWindow(connection, red.id())), log, 30,
                           ResolutionMode::normal, true);
    ASSERT_TRUE(runTask(engine->startCapture()).finished);
    red.moveTo(300, 250);
    const auto moved = listedFrame(connection, red.id(), start);
    ASSERT_TRUE(moved) << "the window manager never moved the window";
    ASSERT_TRUE(session.moveTo(moved->x + 60, moved->y + 50));

    // The pointer image around its hot spot differs from the window's red in dozens of pixels.
    auto pointerPixels = [](const VideoFrame& frame) {
        int count = 0;
        for (int y = 38; y < 62 && y < frame.height(); ++y)
            for (int x = 48; x < 72 && x < frame.width(); ++x)
                count += pixelAt(frame, x, y) != opaqueRed;
        return count;
    };
    const bool drawn = waitUntil(
        [&] {
            const VideoFrame frame = log.lastFrame();
            return !frame.isNull() && pointerPixels(frame) > 20;
        },
        5s);
    ASSERT_TRUE(runTask(engine->stopCapture()).finished);
    EXPECT_TRUE(drawn) << "the pointer was not drawn where it is over the moved window";
}
