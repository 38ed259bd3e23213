#include "support/XvfbSession.h"

#include <gtest/gtest.h>

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

using namespace std::chrono_literals;

namespace {
std::string command(const std::vector<std::string>& argv) {
    return commandOutput(argv, 5000ms).value_or("");
}
} // namespace

// The server starts on a display of its own, exports DISPLAY and answers with the asked size.
TEST(XvfbSessionTest, startsOnAFreeDisplayAndStopsByPid) {
    XvfbSession::Options options;
    REQUIRE_XVFB(options);
    int serverPid = -1;
    {
        XvfbSession session(options);
        ASSERT_TRUE(session.isReady()) << session.error();
        serverPid = session.serverPid();
        EXPECT_EQ(std::getenv("DISPLAY"), session.display());

        xcb_connection_t* connection = xcb_connect(session.display().c_str(), nullptr);
        ASSERT_FALSE(xcb_connection_has_error(connection));
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        EXPECT_EQ(screen->width_in_pixels, 1920);
        EXPECT_EQ(screen->height_in_pixels, 1080);
        xcb_disconnect(connection);
    }
    // Gone with the session. (The display number itself may already serve another test's
    // server, so the process is what is checked.)
    ASSERT_GT(serverPid, 0);
    EXPECT_EQ(::kill(serverPid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

// Two sessions at once get two displays: tests can run side by side.
TEST(XvfbSessionTest, twoSessionsGetDifferentDisplays) {
    REQUIRE_XVFB(XvfbSession::Options{});
    XvfbSession first;
    XvfbSession second;
    ASSERT_TRUE(first.isReady()) << first.error();
    ASSERT_TRUE(second.isReady()) << second.error();
    EXPECT_NE(first.display(), second.display());
}

// The window manager publishes EWMH: a mapped client appears in the stacking list.
TEST(XvfbSessionTest, windowManagerListsClientWindows) {
    XvfbSession::Options options;
    options.windowManager = true;
    REQUIRE_XVFB(options);
    REQUIRE_TOOL("xmessage");
    REQUIRE_TOOL("xprop");
    XvfbSession session(options);
    ASSERT_TRUE(session.isReady()) << session.error();

    EXPECT_NE(command({"xprop", "-root", "_NET_SUPPORTING_WM_CHECK"}).find("window id"),
              std::string::npos);
    session.launch({"xmessage", "-name", "probe", "hello"});
    std::string stacking;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (stacking.find("0x") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
        stacking = command({"xprop", "-root", "_NET_CLIENT_LIST_STACKING"});
    }
    EXPECT_NE(stacking.find("0x"), std::string::npos) << stacking;
}

// Two monitors on one wide screen, the left one primary, as RandR reports them.
TEST(XvfbSessionTest, twoMonitorLayout) {
    XvfbSession::Options options;
    options.twoMonitors = true;
    REQUIRE_XVFB(options);
    XvfbSession session(options);
    ASSERT_TRUE(session.isReady()) << session.error();

    xcb_connection_t* connection = xcb_connect(session.display().c_str(), nullptr);
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    EXPECT_EQ(screen->width_in_pixels, 3840);
    auto* reply = xcb_randr_get_monitors_reply(
        connection, xcb_randr_get_monitors(connection, screen->root, 1), nullptr);
    ASSERT_NE(reply, nullptr);
    ASSERT_EQ(xcb_randr_get_monitors_monitors_length(reply), 2);
    auto it = xcb_randr_get_monitors_monitors_iterator(reply);
    std::vector<std::pair<int, bool>> monitors; // x and primary
    for (; it.rem; xcb_randr_monitor_info_next(&it))
        monitors.emplace_back(it.data->x, it.data->primary);
    std::sort(monitors.begin(), monitors.end());
    EXPECT_EQ(monitors[0], std::make_pair(0, true));
    EXPECT_EQ(monitors[1], std::make_pair(1920, false));
    free(reply);
    xcb_disconnect(connection);
}

// XTEST input moves the real pointer, absolutely and relatively.
TEST(XvfbSessionTest, pointerInputThroughXtest) {
    REQUIRE_XVFB(XvfbSession::Options{});
    XvfbSession session;
    ASSERT_TRUE(session.isReady()) << session.error();
    ASSERT_TRUE(session.moveTo(300, 200));
    EXPECT_EQ(session.pointerPosition(), std::make_pair(300, 200));
    ASSERT_TRUE(session.moveBy(15, -20));
    EXPECT_EQ(session.pointerPosition(), std::make_pair(315, 180));
    EXPECT_TRUE(session.click(1));
}
