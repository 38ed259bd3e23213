#include "platform/x11/X11ShareableContent.h"

#include "platform/x11/X11Connection.h"

#include "MappedWindow.h"

#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/XvfbSession.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

// WM_CLASS is "instance\0class\0"; the class names the application, in lower case for its
// identifier, unless the toolkit gave a desktop-file id. The program's own windows are known by
// their bundle identifier.
TEST(X11ShareableContentTest, ApplicationIdentity) {
    using namespace std::string_literals;
    const auto xmessage = X11ShareableContent::applicationFor("xmessage\0Xmessage\0"s, "", 42);
    EXPECT_EQ(xmessage.bundleIdentifier, QStringLiteral("xmessage"));
    EXPECT_EQ(xmessage.applicationName, QStringLiteral("Xmessage"));
    EXPECT_EQ(xmessage.processID, 42);

    const auto gtk =
        X11ShareableContent::applicationFor("gedit\0Gedit\0"s, "org.gnome.gedit.desktop", 0);
    EXPECT_EQ(gtk.bundleIdentifier, QStringLiteral("org.gnome.gedit"));

    const auto own = X11ShareableContent::applicationFor("tavelquiston\0tavelquiston\0"s, "", 0);
    EXPECT_EQ(own.bundleIdentifier, QStringLiteral("com.tavelquiston.app"));

    // A class with only an instance part still names something.
    EXPECT_EQ(X11ShareableContent::applicationFor("Solo"s, "", 0).bundleIdentifier,
              QStringLiteral("solo"));
}

// Two monitors: the primary (left) first, frames in global points from the bottom left.
TEST(X11ShareableContentTest, DisplaysFromRandRMonitors) {
    XvfbSession::Options options;
    options.twoMonitors = true;
    START_XVFB(session, options);
    X11Connection connection;
    const SCShareableContent content = X11ShareableContent::fetch(connection);
    ASSERT_EQ(content.displays.size(), 2u);
    EXPECT_EQ(content.displays[0].frame, Rect(0, 0, 1920, 1080));
    EXPECT_EQ(content.displays[1].frame, Rect(1920, 0, 1920, 1080));
    EXPECT_NE(content.displays[0].displayID, content.displays[1].displayID);
}

// A managed window has its title, its frame with the decorations, global bottom-left
// coordinates, and its application; the fallback title comes from WM_NAME.
TEST(X11ShareableContentTest, WindowsFromTheWindowManager) {
    XvfbSession::Options options;
    options.width = 800;
    options.height = 600;
    options.windowManager = true;
    START_XVFB(session, options);
    REQUIRE_TOOL("xmessage");
    // xmessage sets WM_NAME only (no _NET_WM_NAME), so the title takes the fallback.
    session.launch({"xmessage", "-name", "probe", "-title", "Probe Title", "-geometry",
                    "200x100+50+60", "hi"});
    X11Connection connection;
    const auto listed = contentWithMappedWindow(connection);
    ASSERT_TRUE(listed) << "the window never showed as listed and mapped";
    const SCShareableContent& content = *listed;
    const SCWindow& window = content.windows.front();
    EXPECT_EQ(window.title, QStringLiteral("Probe Title"));
    ASSERT_TRUE(window.owningApplication.has_value());
    EXPECT_EQ(window.owningApplication->bundleIdentifier, QStringLiteral("xmessage"));
    ASSERT_EQ(content.applications.size(), 1u);
    // Decorations make the frame larger than the 200 x 100 client.
    EXPECT_GT(window.frame.width(), 200);
    EXPECT_GT(window.frame.height(), 100);
    // The frame lies on the screen, measured from its bottom edge.
    EXPECT_GE(window.frame.minY(), 0);
    EXPECT_LE(window.frame.maxY(), 600);
}
