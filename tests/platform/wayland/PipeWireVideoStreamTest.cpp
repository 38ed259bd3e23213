#include "platform/wayland/PipeWireVideoStream.h"

#include "media/VideoFrame.h"
#include "support/DBusSession.h"
#include "support/PipeWireSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

// What the capture thread handed on, read by the test thread.
struct Received {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<VideoFrame> frames;
    std::vector<QString> errors;
    // Earlier frames keep their timing only, as empty frames.
    bool keepsOnlyLast = false;

    PipeWireVideoStream::FrameHandler frameHandler() {
        return [this](VideoFrame frame) {
            std::lock_guard lock(mutex);
            if (keepsOnlyLast && !frames.empty()) {
                VideoFrame timing;
                timing.presentationTime = frames.back().presentationTime;
                frames.back() = timing;
            }
            frames.push_back(std::move(frame));
            changed.notify_all();
        };
    }
    PipeWireVideoStream::ErrorHandler errorHandler() {
        return [this](const QString& error) {
            std::lock_guard lock(mutex);
            errors.push_back(error);
            changed.notify_all();
        };
    }
    template <typename Predicate>
    bool waitFor(std::chrono::milliseconds bound, Predicate done) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, bound, [&] { return done(*this); });
    }
    std::vector<VideoFrame> snapshot() {
        std::lock_guard lock(mutex);
        return frames;
    }
};

struct Pixel {
    int b, g, r, a;
};
Pixel pixelAt(const VideoFrame& frame, int x, int y) {
    const uint8_t* p = frame.bytes() + size_t(y) * size_t(frame.bytesPerRow()) + size_t(x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

class PipeWireVideoStreamTest : public ::testing::Test {
protected:
    void SetUp() override {
        REQUIRE_DBUS();
        REQUIRE_PIPEWIRE();
        bus = std::make_unique<DBusSession>();
        ASSERT_TRUE(bus->isReady()) << bus->error();
        pipewire = std::make_unique<PipeWireSession>();
        ASSERT_TRUE(pipewire->isReady()) << pipewire->error();
    }
    void TearDown() override {
        pipewire.reset();
        bus.reset();
    }

    std::unique_ptr<DBusSession> bus;
    std::unique_ptr<PipeWireSession> pipewire;
};

} // namespace

// A red 320x240 source, cropped and then scaled: every frame has the asked size, is opaque red
// (the source's BGRx padding never leaks into alpha), and carries host-clock times that lie in
// the capture's span at about the source's rate.
TEST_F(PipeWireVideoStreamTest, HandsOnCroppedScaledFramesWithHostClockTimes) {
    const auto node = pipewire->startVideoSource("tq_red", "red", 320, 240);
    ASSERT_TRUE(node) << "the test source did not appear in PipeWire";

    struct Case {
        std::optional<QRect> crop;
        std::optional<QSize> output;
        QSize expected;
    };
    for (const Case& c : {Case{QRect(40, 20, 200, 100), std::nullopt, QSize(200, 100)},
                          Case{std::nullopt, QSize(160, 120), QSize(160, 120)}}) {
        Received received;
        PipeWireVideoStream::Options options;
        options.nodeID = *node;
        options.crop = c.crop;
        options.outputSize = c.output;
        options.frameRate = 60;
        PipeWireVideoStream stream(options, received.frameHandler(), received.errorHandler());
        const MediaTime begin = MediaTime::hostTimeNow();
        stream.start();
        EXPECT_EQ(stream.waitForFormat(5000ms), QSize(320, 240));
        ASSERT_TRUE(received.waitFor(5000ms, [](Received& r) { return r.frames.size() >= 30; }))
            << "frames within 5 s: " << received.snapshot().size();
        stream.stop(false);
        const MediaTime end = MediaTime::hostTimeNow();

        const std::vector<VideoFrame> frames = received.snapshot();
        EXPECT_TRUE(received.errors.empty());
        for (size_t i = 0; i < frames.size(); ++i) {
            const VideoFrame& frame = frames[i];
            ASSERT_EQ(QSize(frame.width(), frame.height()), c.expected);
            EXPECT_GE(frame.presentationTime, begin);
            EXPECT_LE(frame.presentationTime, end);
            if (i > 0) {
                EXPECT_GT(frame.presentationTime, frames[i - 1].presentationTime);
            }
            const Pixel p = pixelAt(frame, frame.width() / 2, frame.height() / 2);
            EXPECT_TRUE(p.r > 200 && p.g < 40 && p.b < 40 && p.a == 255)
                << "frame " << i << ": " << p.r << "," << p.g << "," << p.b << "," << p.a;
        }
        // 30 frames a second from the source: about 33 ms apart on average.
        const double span =
            (frames.back().presentationTime - frames.front().presentationTime).seconds();
        const double spacing = span / double(frames.size() - 1);
        EXPECT_GT(spacing, 0.020);
        EXPECT_LT(spacing, 0.050);
    }
}

// Asked for fewer frames than the source sends, the stream thins them; a picture it held back
// comes at the stop, stamped then, so the frames reach the stop within one source interval.
TEST_F(PipeWireVideoStreamTest, ThinsToTheAskedRateAndClosesWithTheLastPicture) {
    const auto node = pipewire->startVideoSource("tq_blue", "blue", 128, 96);
    ASSERT_TRUE(node);
    // Like a writer, it lets frames go: GStreamer's producer fills its buffers strictly in turn
    // and waits for one still held.
    Received received;
    received.keepsOnlyLast = true;
    PipeWireVideoStream::Options options;
    options.nodeID = *node;
    options.frameRate = 15;
    PipeWireVideoStream stream(options, received.frameHandler(), received.errorHandler());
    stream.start();
    ASSERT_TRUE(stream.waitForFormat(5000ms));
    ASSERT_TRUE(received.waitFor(5000ms, [](Received& r) { return r.frames.size() >= 5; }));
    const auto first = received.snapshot().front().presentationTime;
    std::this_thread::sleep_for(1000ms);
    const MediaTime stopAt = MediaTime::hostTimeNow();
    stream.stop(true);

    const std::vector<VideoFrame> frames = received.snapshot();
    const double rate = double(frames.size() - 1) / (stopAt - first).seconds();
    EXPECT_GT(rate, 5.0); // a loaded machine may lose some; more than 20 would be unthinned
    EXPECT_LT(rate, 20.0) << "the 30 frames/s source was not thinned to 15";
    EXPECT_GE(frames.back().presentationTime, stopAt - MediaTime::make(1, 30));
    const Pixel p = pixelAt(frames.back(), 64, 48);
    EXPECT_TRUE(p.b > 200 && p.r < 40 && p.g < 40);
}

// A producer that goes away is one error, and the stream hands on nothing after it.
TEST_F(PipeWireVideoStreamTest, ReportsAVanishedProducerOnce) {
    const auto node = pipewire->startVideoSource("tq_gone", "green", 64, 64);
    ASSERT_TRUE(node);
    Received received;
    PipeWireVideoStream::Options options;
    options.nodeID = *node;
    PipeWireVideoStream stream(options, received.frameHandler(), received.errorHandler());
    stream.start();
    ASSERT_TRUE(received.waitFor(5000ms, [](Received& r) { return !r.frames.empty(); }));
    pipewire->stopVideoSource("tq_gone");
    EXPECT_TRUE(received.waitFor(5000ms, [](Received& r) { return !r.errors.empty(); }))
        << "no error within 5 s of the producer leaving";
    const size_t framesAtError = received.snapshot().size();
    std::this_thread::sleep_for(300ms);
    stream.stop(true);
    EXPECT_EQ(received.errors.size(), 1u);
    EXPECT_EQ(received.snapshot().size(), framesAtError);
}

// A desktop-like source: a damaged picture every fourth buffer, the others only move the
// pointer. Without the pointer drawn, the undamaged buffers are idle and hand nothing on, while
// the pointer's place is still read; with it drawn, each move is a frame with the white pointer
// on the unchanged green picture, in a new place each time.
TEST_F(PipeWireVideoStreamTest, DamageFreeBuffersAreIdleAndTheCursorComesFromMetadata) {
    const auto node = pipewire->startSourceProgram(
        "tq_cursor", {TAVELQUISTON_CURSOR_SOURCE_PATH, "--name", "tq_cursor", "--width", "320",
                      "--height", "240", "--color", "00ff00"});
    ASSERT_TRUE(node) << "the cursor source did not appear in PipeWire";

    auto whiteColumns = [](const VideoFrame& frame) {
        std::vector<int> columns;
        for (int x = 0; x < frame.width(); ++x) {
            const Pixel p = pixelAt(frame, x, frame.height() / 2 + 4);
            if (p.r > 240 && p.g > 240 && p.b > 240)
                columns.push_back(x);
        }
        return columns;
    };
    for (const bool showsCursor : {false, true}) {
        Received received;
        PipeWireVideoStream::Options options;
        options.nodeID = *node;
        options.showsCursor = showsCursor;
        PipeWireVideoStream stream(options, received.frameHandler(), received.errorHandler());
        stream.start();
        ASSERT_TRUE(stream.waitForFormat(5000ms));
        ASSERT_TRUE(received.waitFor(5000ms, [](Received& r) { return r.frames.size() >= 12; }))
            << "frames within 5 s: " << received.snapshot().size();
        const std::optional<QPoint> cursor = stream.cursorPosition();
        const int64_t idle = stream.idleFrameCount();
        const int64_t delivered = stream.deliveredFrameCount();
        stream.stop(false);
        const std::vector<VideoFrame> frames = received.snapshot();

        ASSERT_TRUE(cursor);
        EXPECT_EQ(cursor->y(), 120);
        for (const VideoFrame& frame : frames) {
            const Pixel p = pixelAt(frame, 2, 2);
            // A picture lent as is keeps the producer's padding where BGRx has no alpha.
            ASSERT_TRUE(p.g > 240 && p.r < 20 && p.b < 20 && (!frame.hasAlpha() || p.a == 255));
        }
        if (!showsCursor) {
            // Three in four buffers say nothing changed.
            EXPECT_GT(idle, delivered) << idle << " idle, " << delivered << " delivered";
            for (const VideoFrame& frame : frames)
                EXPECT_TRUE(whiteColumns(frame).empty());
        } else {
            // Only the (at most three) buffers before the first picture have nothing to draw on.
            EXPECT_LE(idle, 3) << idle << " idle, " << delivered << " delivered";
            std::optional<int> previous;
            for (const VideoFrame& frame : frames) {
                const std::vector<int> columns = whiteColumns(frame);
                ASSERT_EQ(columns.size(), 16u);
                EXPECT_EQ(columns.back() - columns.front(), 15);
                if (previous) {
                    EXPECT_NE(columns.front(), *previous);
                }
                previous = columns.front();
            }
        }
    }
}

// Whole pictures are handed on as the producer's own buffers. Frames held on to (a writer that
// falls behind) never starve the producer: beyond a few, pictures are copied and keep coming.
// A held frame stays readable after the stream is gone; and frames let go at once send their
// buffers back, so every picture can be lent.
TEST_F(PipeWireVideoStreamTest, LentFramesOutliveTheStreamAndNeverStallIt) {
    // A producer that fills whichever buffer is free, as desktops do; the pointer it draws
    // is left out, so only its damaged pictures (one buffer in four) are frames.
    const auto node = pipewire->startSourceProgram(
        "tq_lent", {TAVELQUISTON_CURSOR_SOURCE_PATH, "--name", "tq_lent", "--width", "320",
                    "--height", "240", "--color", "ff0000"});
    ASSERT_TRUE(node);
    PipeWireVideoStream::Options options;
    options.nodeID = *node;
    options.frameRate = 60;

    Received held;
    int64_t lent = 0, delivered = 0;
    {
        PipeWireVideoStream stream(options, held.frameHandler(), held.errorHandler());
        stream.start();
        ASSERT_EQ(stream.waitForFormat(5000ms), QSize(320, 240));
        ASSERT_TRUE(held.waitFor(5000ms, [](Received& r) { return r.frames.size() >= 12; }))
            << "frames within 5 s while all are held: " << held.snapshot().size();
        stream.stop(false);
        lent = stream.lentFrameCount();
        delivered = stream.deliveredFrameCount();
    }
    EXPECT_GT(lent, 0);
    EXPECT_LT(lent, delivered) << "every held frame kept a buffer from the producer";
    for (const VideoFrame& frame : held.snapshot()) {
        const Pixel p = pixelAt(frame, 160, 120);
        ASSERT_TRUE(p.r > 200 && p.g < 40 && p.b < 40) << p.r << "," << p.g << "," << p.b;
    }

    // GStreamer's producer waits for its buffers in turn: it keeps going only because every
    // frame comes back.
    const auto inTurn = pipewire->startVideoSource("tq_in_turn", "red", 320, 240);
    ASSERT_TRUE(inTurn);
    options.nodeID = *inTurn;
    std::atomic<int> seen{0};
    PipeWireVideoStream stream(
        options, [&](VideoFrame) { ++seen; }, [](const QString&) {});
    stream.start();
    ASSERT_TRUE(stream.waitForFormat(5000ms));
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (seen.load() < 30 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(10ms);
    stream.stop(false);
    ASSERT_GE(seen.load(), 30);
    EXPECT_EQ(stream.lentFrameCount(), stream.deliveredFrameCount());
}
