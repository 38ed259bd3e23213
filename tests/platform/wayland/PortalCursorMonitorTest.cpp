#include "platform/wayland/PortalCursorMonitor.h"

#include "platform/wayland/PortalCoordinates.h"
#include "platform/wayland/PortalCursorFeed.h"
#include "support/EventLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

using namespace std::chrono_literals;

// A pointer the stream moves: each place it takes is one move, in order, and a pointer at
// rest sends none; the monitor's location is the stream's at any time.
TEST(PortalCursorMonitorTest, EachNewPlaceOfTheStreamsPointerIsOneMove) {
    auto feed = std::make_shared<PortalCursorFeed>();
    std::atomic<double> x{10};
    const int stream = 0; // stands for the engine that attaches its reader
    feed->attach(&stream, [&] { return std::optional(Point{x.load(), 20}); });

    PortalCursorMonitor monitor(feed);
    std::vector<Point> moves;
    monitor.setCursorMoveHandler([&](Point at) { moves.push_back(at); });
    monitor.startMonitoring();
    processEventsFor(100ms);
    EXPECT_TRUE(moves.empty()) << "a pointer at rest moved";
    for (double next : {30.0, 50.0}) {
        x = next;
        ASSERT_TRUE(waitUntil([&] { return !moves.empty() && moves.back().x == next; }, 2s));
    }
    processEventsFor(100ms);
    EXPECT_EQ(moves, (std::vector<Point>{{30, 20}, {50, 20}}));
    EXPECT_EQ(monitor.mouseLocation(), (Point{50, 20}));

    monitor.stopMonitoring();
    x = 70;
    processEventsFor(100ms);
    EXPECT_EQ(moves.size(), 2u) << "moves after the monitor stopped";
}

// The engine of the next recording takes over the feed; the one it replaced letting go later
// must not leave the monitor blind. Without any engine there is no location.
TEST(PortalCursorMonitorTest, AReplacedEngineLettingGoKeepsTheNewOnesPointer) {
    auto feed = std::make_shared<PortalCursorFeed>();
    PortalCursorMonitor monitor(feed);
    EXPECT_EQ(monitor.mouseLocation(), std::nullopt);
    const int first = 0, second = 0;
    feed->attach(&first, [] { return std::optional(Point{1, 1}); });
    feed->attach(&second, [] { return std::optional(Point{2, 2}); });
    feed->detach(&first);
    EXPECT_EQ(monitor.mouseLocation(), (Point{2, 2}));
    feed->detach(&second);
    EXPECT_EQ(monitor.mouseLocation(), std::nullopt);
}

// Stream pixels count from the top left of the picture; global points from the bottom left of
// the desktop. A monitor scaled by two streams twice its points, and its place on the desktop
// carries over.
TEST(PortalCursorMonitorTest, StreamPixelsBecomeGlobalPointsOfTheMonitor) {
    // Two 1920x1080 monitors side by side, the right one streamed at twice its size.
    const Rect right = PortalCoordinates::monitorToGlobal(QPoint(1920, 0), QSize(1920, 1080), 1080);
    EXPECT_EQ(right, Rect(1920, 0, 1920, 1080));
    const Point topLeft =
        PortalCoordinates::streamPointToGlobal(QPoint(0, 0), QSize(3840, 2160), right);
    EXPECT_EQ(topLeft, (Point{1920, 1080}));
    const Point middle =
        PortalCoordinates::streamPointToGlobal(QPoint(1920, 1080), QSize(3840, 2160), right);
    EXPECT_EQ(middle, (Point{1920 + 960, 540}));
    // A lower monitor of a stacked desktop lies nearer the global origin.
    EXPECT_EQ(PortalCoordinates::monitorToGlobal(QPoint(0, 1080), QSize(1280, 720), 1800),
              Rect(0, 0, 1280, 720));
    // An area 100 points up from the monitor's bottom is 100 pixels above the picture's bottom.
    EXPECT_EQ(PortalCoordinates::areaToPicture(Rect(10, 100, 200, 50), QSize(640, 480)),
              QRect(10, 330, 200, 50));
}
