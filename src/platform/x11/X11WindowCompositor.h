#pragma once

#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11Handles.h"

#include <cstdint>
#include <optional>
#include <vector>

class X11Connection;
class X11WindowTracker;

// Pictures of chosen windows without what covers them: each window's top-level frame is
// redirected off screen (XComposite, automatic mode, so the screen looks as before), and its
// pixmap is drawn in stacking order over the wallpaper or a background colour, at the place
// the tracker last saw it within the content rectangle. Windows the tracker starts following
// during the recording are redirected as they come. Used by the capture thread only.
class X11WindowCompositor final {
public:
    // `content` is the captured rectangle in root pixels. `background` is 0xRRGGBB, or absent
    // for the desktop's wallpaper. With `followsWindow` the tracker's one window is the content
    // wherever it moves, fitted into the picture whole and keeping its proportions; a window
    // grown past the picture is shown smaller.
    X11WindowCompositor(const X11Connection& connection, X11WindowTracker& tracker, X11Rect content,
                        std::optional<uint32_t> background, bool followsWindow);
    ~X11WindowCompositor();
    X11WindowCompositor(const X11WindowCompositor&) = delete;
    X11WindowCompositor& operator=(const X11WindowCompositor&) = delete;

    // False when the server has no Composite extension.
    bool isAvailable() const { return m_available; }
    // One event from the connection's queue; damage to a captured window is noted.
    void handle(const xcb_generic_event_t* event);
    // Whether any captured window changed, moved, came or went since the last call.
    bool takeDamage();
    // Draws the windows into a BGRA picture of any size (scaled from the content rectangle).
    // Returns the id of a window named by id that no longer exists; nothing is drawn then.
    std::optional<xcb_window_t> compose(uint8_t* pixels, int stride, int width, int height);

    bool followsWindow() const { return m_followsWindow; }
    // The factor of the last composition of a followed window (1 when it fitted).
    double contentScale() const { return m_contentScale; }
    // Where the followed window was at the last composition, in root pixels: its top-left
    // corner is the picture's.
    std::optional<X11Rect> followedFrame() const { return m_followedFrame; }

private:
    struct Captured {
        xcb_window_t toplevel = 0; // 0 once released
        X11Damage damage;
    };
    void redirectNewWindows();
    void release(Captured& captured);
    void drawBackground();
    void composeFollowed(uint8_t* pixels, int stride, int width, int height);

    const X11Connection& m_connection;
    X11WindowTracker& m_tracker;
    X11Rect m_content;
    std::optional<uint32_t> m_background;
    bool m_followsWindow = false;
    bool m_available = false;
    bool m_hasDamage = false;
    uint8_t m_damageEvent = 0;
    bool m_damaged = false;
    std::vector<Captured> m_captured;
    uint64_t m_generation = ~uint64_t(0); // of the tracker when windows were last redirected
    std::vector<uint32_t> m_canvas;       // the content rectangle at its own size
    std::vector<uint32_t> m_wallpaper;    // the same, read from the desktop; empty when none
    bool m_wallpaperRead = false;
    double m_contentScale = 1.0;
    std::optional<X11Rect> m_followedFrame;
};
