#pragma once

#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11Handles.h"

#include <QImage>

#include <xcb/xcb.h>

#include <functional>
#include <map>
#include <optional>
#include <vector>

class X11Connection;

// What lies under a small rectangle of the screen, read without the program's own windows,
// for the magnifier that sits on top of exactly that rectangle. The other programs' top-level
// windows that cross the rectangle are redirected off screen as they are met (XComposite,
// automatic mode, so the screen looks as before); a read draws them, bottom to top, from their
// own pixmaps over the wallpaper. Only the rectangle travels over the socket, never the whole
// screen. A redirected window's drawing no longer counts as drawing on the root, so capture
// that waits for the root's damage would miss it: the source reports it on the root itself.
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
    // Reports what the redirected windows drew since the last call as damage of the root, for
    // the other clients that watch it (screen capture). Each read does so too.
    void forwardDamage();

private:
    struct Placed {
        xcb_window_t window = 0;
        X11Rect outer;      // with the border, root pixels
        bool opaque = true; // false for windows with an alpha channel
    };
    // The top levels under the rectangle, bottom first, without the program's own.
    std::vector<Placed> windowsAcross(const xcb_query_tree_reply_t& tree, const X11Rect& area);
    // Redirects those not redirected yet; forgets the ones no longer in the tree.
    void redirect(const std::vector<Placed>& windows, const xcb_query_tree_reply_t& tree);

    const X11Connection& m_connection;
    IsOwnWindow m_isOwn;
    bool m_available = false;
    xcb_atom_t m_wallpaperAtom = XCB_ATOM_NONE; // where desktop setters publish the wallpaper
    // The redirected windows, each with its damage when it is forwarded.
    std::map<xcb_window_t, X11Damage> m_redirected;
    bool m_forwardsDamage = false;
    uint8_t m_damageEvent = 0;
};
