#pragma once

#include "platform/x11/X11Coordinates.h"

#include <QImage>

#include <xcb/xcb.h>

#include <functional>
#include <optional>

class X11Connection;

// What lies under a small rectangle of the screen, read without the program's own windows,
// for the magnifier that sits on top of exactly that rectangle. Every top-level window is
// redirected off screen (XComposite, automatic mode, so the screen looks as before); a read
// draws, bottom to top, the windows that cross the rectangle from their own pixmaps over the
// wallpaper, leaving out the ones the caller calls its own. Only the rectangle travels over
// the socket, never the whole screen.
//
// Thread: the one that made it; the connection must outlive it.
class X11MagnifierSource final {
public:
    // Whether a window (a top level, or a window manager's frame's client) is the program's own.
    using IsOwnWindow = std::function<bool(xcb_window_t)>;

    X11MagnifierSource(const X11Connection& connection, IsOwnWindow isOwn);
    ~X11MagnifierSource();
    X11MagnifierSource(const X11MagnifierSource&) = delete;
    X11MagnifierSource& operator=(const X11MagnifierSource&) = delete;

    // False when the server has no Composite extension: the screen under a window of ours
    // cannot be seen then.
    bool isAvailable() const { return m_available; }
    // The rectangle in root pixels (it may run off the screen; what is off it is black), as an
    // opaque picture of its size. Absent when the source is not available.
    std::optional<QImage> read(const X11Rect& area);

private:
    struct Placed {
        xcb_window_t window = 0;
        X11Rect outer;      // with the border, root pixels
        bool opaque = true; // false for windows with an alpha channel
    };
    // The top levels under the rectangle, bottom first, without the program's own.
    std::vector<Placed> windowsAcross(const xcb_query_tree_reply_t& tree, const X11Rect& area);

    const X11Connection& m_connection;
    IsOwnWindow m_isOwn;
    bool m_available = false;
    xcb_atom_t m_wallpaperAtom = XCB_ATOM_NONE; // where desktop setters publish the wallpaper
};
