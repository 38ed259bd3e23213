#include "platform/x11/X11WindowTracker.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Handles.h"

#include "MappedWindow.h"

#include "support/XvfbSession.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

const QString own = QStringLiteral("com.tavelquiston.app");

XvfbSession::Options managedScreen() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    options.windowManager = true;
    return options;
}

// Hands the tracker what its connection received, as the capture thread does at each tick.
void pump(X11Connection& connection, X11WindowTracker& tracker) {
    while (const X11Event event{xcb_poll_for_event(connection.get())})
        tracker.handle(event.get());
    tracker.update();
}

} // namespace

// Display recordings keep out the program's panels but not its overlays; application
// recordings take the overlays but not the panels; ids count whatever the owner.
TEST(X11WindowTrackerTest, SelectionByIdApplicationAndOwnWindows) {
    const X11WindowSelection keptOut{{}, {QStringLiteral("secret")}, true};
    EXPECT_TRUE(keptOut.matches(1, QStringLiteral("secret"), QStringLiteral("notes")));
    EXPECT_FALSE(keptOut.matches(1, QStringLiteral("xterm"), QStringLiteral("notes")));
    EXPECT_TRUE(keptOut.matches(1, own, QStringLiteral("Recording")));
    EXPECT_FALSE(keptOut.matches(1, own, QStringLiteral("Mouse Pointer")));
    EXPECT_FALSE(keptOut.matches(1, QString(), QString()));

    const X11WindowSelection shown{{}, {QStringLiteral("painter"), own}, false};
    EXPECT_TRUE(shown.matches(1, own, QStringLiteral("Camera Overlayer")));
    EXPECT_FALSE(shown.matches(1, own, QStringLiteral("Recording")));
    EXPECT_TRUE(shown.matches(1, QStringLiteral("painter"), QString()));

    const X11WindowSelection byID{{7}, {}, false};
    EXPECT_TRUE(byID.matches(7, QString(), QString()));
    EXPECT_FALSE(byID.matches(8, QStringLiteral("painter"), QString()));
    EXPECT_FALSE(byID.needsOwners());
}

// The tracker follows a chosen window's moves from the server's notifications, remembers all
// the places it passed until swept, takes in a window of the application opened later, and
// drops one that closes, remembering where it was.
TEST(X11WindowTrackerTest, FollowsMovesNewWindowsAndClosedOnes) {
    START_XVFB(session, managedScreen());
    ColouredWindow first(0xff0000, {40, 40, 160, 100}, "painter");
    ColouredWindow other(0x0000ff, {360, 40, 160, 100}, "otherapp");
    X11Connection connection;
    const auto firstPlace = listedFrame(connection, first.id());
    ASSERT_TRUE(firstPlace && listedFrame(connection, other.id()));

    X11Connection trackerConnection;
    X11WindowTracker tracker(trackerConnection, {{}, {QStringLiteral("painter")}, false});
    tracker.start();
    ASSERT_EQ(tracker.windows().size(), 1u);
    EXPECT_EQ(tracker.windows()[0].client, first.id());
    EXPECT_EQ(tracker.windows()[0].frame, *firstPlace);
    EXPECT_TRUE(tracker.windows()[0].viewable);
    EXPECT_FALSE(tracker.missing());

    first.moveTo(300, 250);
    const auto moved = listedFrame(connection, first.id(), firstPlace);
    ASSERT_TRUE(moved);
    EXPECT_TRUE(waitUntil(
        [&] {
            pump(trackerConnection, tracker);
            return tracker.windows()[0].frame == *moved;
        },
        5s));
    EXPECT_TRUE(tracker.takeChange());
    EXPECT_FALSE(tracker.takeChange());
    // It went right and down: the swept box runs from the old top left to the new bottom
    // right.
    const X11WindowTracker::Window& window = tracker.windows()[0];
    EXPECT_EQ(window.swept,
              (X11Rect{firstPlace->x, firstPlace->y, moved->x + moved->width - firstPlace->x,
                       moved->y + moved->height - firstPlace->y}));
    EXPECT_TRUE(tracker.takeSweep());
    EXPECT_EQ(tracker.windows()[0].swept, *moved);
    EXPECT_FALSE(tracker.takeSweep());

    const uint64_t generation = tracker.generation();
    ColouredWindow second(0x00ff00, {40, 300, 160, 100}, "painter");
    EXPECT_TRUE(waitUntil(
        [&] {
            pump(trackerConnection, tracker);
            return tracker.windows().size() == 2;
        },
        5s));
    EXPECT_NE(tracker.generation(), generation);
    // The newest window is on top, so last.
    EXPECT_EQ(tracker.windows().back().client, second.id());

    first.close();
    EXPECT_TRUE(waitUntil(
        [&] {
            pump(trackerConnection, tracker);
            return tracker.windows().size() == 1;
        },
        5s));
    EXPECT_EQ(tracker.windows()[0].client, second.id());
    ASSERT_EQ(tracker.vanished().size(), 1u);
    EXPECT_EQ(tracker.vanished()[0], *moved);
    EXPECT_TRUE(tracker.takeSweep());
    EXPECT_TRUE(tracker.vanished().empty());
    EXPECT_FALSE(tracker.missing()) << "a window of an application may close";
}

// A window chosen by id that closes is reported as missing.
TEST(X11WindowTrackerTest, ClosedWindowChosenByIdIsMissing) {
    START_XVFB(session, managedScreen());
    ColouredWindow chosen(0xff0000, {40, 40, 160, 100}, "painter");
    X11Connection connection;
    ASSERT_TRUE(listedFrame(connection, chosen.id()));
    const xcb_window_t id = chosen.id();
    X11WindowTracker tracker(connection, {{id}, {}, false});
    tracker.start();
    ASSERT_EQ(tracker.windows().size(), 1u);
    EXPECT_FALSE(tracker.missing());
    chosen.close();
    EXPECT_TRUE(waitUntil(
        [&] {
            pump(connection, tracker);
            return tracker.missing().has_value();
        },
        5s));
    EXPECT_EQ(tracker.missing(), std::optional(id));
}
