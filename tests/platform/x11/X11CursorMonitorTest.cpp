#include "platform/x11/X11CursorMonitor.h"

#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/XvfbSession.h"

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;

namespace {

XvfbSession::Options screen() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    return options;
}

struct Seen {
    std::vector<std::pair<Point, ClickType>> clicks;
    std::vector<Point> moves;
};

} // namespace

// XTEST presses reach the monitor through the root's raw events: left, double and right
// clicks at the pointer in global points (origin bottom left); the middle button and the
// wheel make no click; a second start changes nothing; after stop nothing more arrives.
TEST(X11CursorMonitorTest, PressesBecomeClicksAtGlobalPoints) {
    START_XVFB(session, screen());
    REQUIRE_TOOL("xdotool");

    Seen seen;
    X11CursorMonitor monitor;
    monitor.setClickThreshold(0.0);
    monitor.setClickHandler([&](Point at, ClickType type) { seen.clicks.push_back({at, type}); });
    monitor.setCursorMoveHandler([&](Point at) { seen.moves.push_back(at); });
    monitor.startMonitoring();
    ASSERT_TRUE(monitor.isMonitoring());
    monitor.startMonitoring();
    EXPECT_TRUE(monitor.isMonitoring());

    ASSERT_TRUE(session.moveTo(100, 80));
    const std::optional<Point> location = monitor.mouseLocation();
    ASSERT_TRUE(location);
    EXPECT_EQ(*location, (Point{100, 480 - 80}));
    ASSERT_TRUE(session.click(1));
    ASSERT_TRUE(waitUntil([&] { return seen.clicks.size() == 1; }, 5s));
    EXPECT_EQ(seen.clicks[0].first, (Point{100, 400}));
    EXPECT_EQ(seen.clicks[0].second, ClickType::leftClick);

    // Well past the double-click time, so the next press starts a new series.
    std::this_thread::sleep_for(600ms);
    ASSERT_EQ(runCommand({"xdotool", "click", "--repeat", "2", "--delay", "80", "1"}, 5s), 0);
    ASSERT_TRUE(waitUntil([&] { return seen.clicks.size() == 3; }, 5s));
    EXPECT_EQ(seen.clicks[1].second, ClickType::leftClick);
    EXPECT_EQ(seen.clicks[2].second, ClickType::doubleClick);

    ASSERT_TRUE(session.click(2));
    ASSERT_TRUE(session.click(4));
    ASSERT_TRUE(session.click(5));
    ASSERT_TRUE(session.click(3));
    ASSERT_TRUE(waitUntil([&] { return seen.clicks.size() >= 4; }, 5s));
    processEventsFor(200ms);
    ASSERT_EQ(seen.clicks.size(), 4u);
    EXPECT_EQ(seen.clicks[3].second, ClickType::rightClick);
    EXPECT_TRUE(monitor.lastClickTime().has_value());

    monitor.stopMonitoring();
    EXPECT_FALSE(monitor.isMonitoring());
    ASSERT_TRUE(session.click(1));
    processEventsFor(300ms);
    EXPECT_EQ(seen.clicks.size(), 4u);
}
