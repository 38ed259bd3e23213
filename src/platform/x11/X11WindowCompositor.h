#pragma once

#include "platform/x11/X11Coordinates.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <vector>

class X11Connection;

// Pictures of chosen windows without what covers them: each window's top-level frame is
// redirected off screen (XComposite, automatic mode, so the screen looks as before), and its
// pixmap is drawn in stacking order over the wallpaper or a background colour, at the window's
// place within the content rectangle. Used by the capture thread only.
class X11WindowCompositor final {
public:
    // `clients` are the windows as listed (client ids); `content` is the captured rectangle in
    // root pixels. `background` is 0xRRGGBB, or absent for the desktop's wallpaper.
    X11WindowCompositor(const X11Connection& connection, std::vector<xcb_window_t> clients,
                        X11Rect content, std::optional<uint32_t> background);
    ~X11WindowCompositor();
    X11WindowCompositor(const X11WindowCompositor&) = delete;
    X11WindowCompositor& operator=(const X11WindowCompositor&) = delete;

    // False when the server has no Composite extension.
    bool isAvailable() const { return m_available; }
    // Whether any captured window changed since the last call.
    bool takeDamage();
    // Draws the windows into a BGRA picture of any size (scaled from the content rectangle).
    // Returns the id of a window that no longer exists, if one is gone; nothing is drawn then.
    std::optional<xcb_window_t> compose(uint8_t* pixels, int stride, int width, int height);

    // One window alone follows it wherever it moves and is fitted into the picture whole,
    // keeping its proportions; a window grown past the picture is shown smaller. The factor of
    // the last composition (1 when it fitted) is the content scale.
    bool followsWindow() const { return m_windows.size() == 1; }
    double contentScale() const { return m_contentScale; }

private:
    struct Captured {
        xcb_window_t client = 0;
        xcb_window_t toplevel = 0;
        uint32_t damage = 0;
    };
    xcb_window_t toplevelOf(xcb_window_t window) const;
    bool drawWallpaper(std::vector<uint32_t>& canvas);

    const X11Connection& m_connection;
    std::vector<Captured> m_windows;
    X11Rect m_content;
    std::optional<uint32_t> m_background;
    bool m_available = false;
    uint8_t m_damageEvent = 0;
    std::vector<uint32_t> m_canvas; // the content rectangle at its own size
    double m_contentScale = 1.0;
};
