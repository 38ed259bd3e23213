#pragma once

#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11Handles.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// One connection to the X server named by DISPLAY, with its first screen. xcb connections are
// thread-safe, so one may be shared by the thread that made it and a capture thread.
class X11Connection final {
public:
    // Throws RecordingError::captureDeviceUnavailable when no X server answers.
    X11Connection();
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    xcb_connection_t* get() const { return m_connection; }
    xcb_screen_t* screen() const { return m_screen; }
    xcb_window_t root() const { return m_screen->root; }
    int rootWidth() const { return m_screen->width_in_pixels; }
    int rootHeight() const { return m_screen->height_in_pixels; }
    bool hasError() const { return xcb_connection_has_error(m_connection) != 0; }

    xcb_atom_t atom(std::string_view name) const;
    // A property's bytes, empty when the window has none (or is gone).
    std::string property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                         uint32_t maxLength = 65536) const;
    // A list of windows published on the root (WINDOW[]), empty when absent.
    std::vector<xcb_window_t> rootWindowList(xcb_atom_t property) const;
    // The desktop's wallpaper under `area`, 32 bits a pixel, read from the pixmap desktop
    // setters publish on the root; null when none is published or it cannot be read whole.
    X11Reply<xcb_get_image_reply_t> wallpaper(const X11Rect& area) const;

private:
    xcb_connection_t* m_connection = nullptr;
    xcb_screen_t* m_screen = nullptr;
};
