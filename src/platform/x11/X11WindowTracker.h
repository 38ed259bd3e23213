#pragma once

#include "platform/x11/X11Coordinates.h"

#include <QString>

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

class X11Connection;

// Which managed windows a stream follows. A window's owner and title are read once, when the
// window manager first lists it.
struct X11WindowSelection {
    // These windows by id; one that goes away is an error for the stream.
    std::vector<xcb_window_t> windows;
    // Every window of these applications (bundle identifiers), also those opened later.
    std::vector<QString> applications;
    // The program's own windows other than its overlays (which never count as chosen here).
    bool ownWindows = false;

    bool needsOwners() const { return !applications.empty() || ownWindows; }
    bool matches(xcb_window_t client, const QString& owner, const QString& title) const;
};

// Where the chosen windows are now, kept current from the server's notifications instead of
// questions at every frame: the root's SubstructureNotify events move, map and unmap the
// windows' frames, and changes of the window manager's client list bring new windows and drop
// closed ones. Lives on the capture thread, which hands it every event it reads.
class X11WindowTracker final {
public:
    struct Window {
        xcb_window_t client = 0;
        xcb_window_t toplevel = 0; // the window manager's frame, a child of the root
        X11Rect frame;             // root pixels, borders included
        // Every place the frame covered since the last `takeSweep`, as one bounding box.
        X11Rect swept;
        bool viewable = false;
        // Whether it was on screen at any moment since the last `takeSweep`.
        bool shown = false;
    };

    X11WindowTracker(const X11Connection& connection, X11WindowSelection selection);
    ~X11WindowTracker();
    X11WindowTracker(const X11WindowTracker&) = delete;
    X11WindowTracker& operator=(const X11WindowTracker&) = delete;

    // Asks for the root's notifications and reads the windows there are. Blocks on a few
    // batched round trips; the capture thread does it before its first frame.
    void start();
    // One event from the connection's queue; events that are not about windows are ignored.
    void handle(const xcb_generic_event_t* event);
    // Reads the client list again when it changed. Call once per tick, after the events.
    void update();

    // The chosen windows, bottom first.
    const std::vector<Window>& windows() const { return m_windows; }
    // Where windows that closed or left the list since the last `takeSweep` were last seen:
    // a picture grabbed just before they went may still hold them.
    const std::vector<X11Rect>& vanished() const { return m_vanished; }
    // Changes whenever a window joins or leaves the list.
    uint64_t generation() const { return m_generation; }
    // Whether a chosen window moved, changed size, stacking or visibility, came or went since
    // the last call.
    bool takeChange();
    // Forgets where the windows were: each swept box becomes the present frame and vanished
    // windows are forgotten. Returns whether some window had moved or gone, so that a picture
    // showing their old places as they are should follow.
    bool takeSweep();
    // A window named by id that is gone, if one is.
    std::optional<xcb_window_t> missing() const { return m_missing; }
    // Whether the desktop's wallpaper changed since the last call.
    bool takeWallpaperChange();

private:
    std::vector<xcb_window_t> readClientList() const;
    void refresh();
    Window* byToplevel(xcb_window_t toplevel);
    void forget(const Window& window);
    void discover(const std::vector<xcb_window_t>& clients, std::vector<Window>& found);

    const X11Connection& m_connection;
    X11WindowSelection m_selection;
    xcb_atom_t m_stackingAtom = XCB_ATOM_NONE;
    xcb_atom_t m_listAtom = XCB_ATOM_NONE;
    xcb_atom_t m_wallpaperAtom = XCB_ATOM_NONE;
    xcb_atom_t m_utf8Atom = XCB_ATOM_NONE;
    xcb_atom_t m_netNameAtom = XCB_ATOM_NONE;
    xcb_atom_t m_gtkIDAtom = XCB_ATOM_NONE;
    xcb_atom_t m_kdeDesktopFileAtom = XCB_ATOM_NONE;
    uint32_t m_previousRootMask = 0;
    bool m_started = false;

    std::vector<Window> m_windows;
    std::vector<xcb_window_t> m_ignored; // listed, but not chosen
    std::vector<X11Rect> m_vanished;
    std::optional<xcb_window_t> m_missing;
    uint64_t m_generation = 0;
    bool m_listChanged = false;
    bool m_changed = false;
    bool m_wallpaperChanged = false;
};
