#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11ShareableContent.h"

#include "support/EventLoop.h"

#include <cctype>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

// The shareable content once the test's one window is listed and mapped: the window manager
// lists a new window a moment before it maps it. Absent when that takes longer than 10 s.
inline std::optional<SCShareableContent> contentWithMappedWindow(X11Connection& connection) {
    SCShareableContent content;
    const bool shown = waitUntil(
        [&] {
            content = X11ShareableContent::fetch(connection);
            return !content.windows.empty() && content.windows.front().isOnScreen;
        },
        std::chrono::seconds(10));
    return shown ? std::optional(content) : std::nullopt;
}

// A window of one colour on a connection of its own, named as an application through its
// WM_CLASS ("<name>\0<Name>\0", so its bundle identifier is the lower-case name) and asking the
// window manager for the given place. Destroyed with the object.
class ColouredWindow {
public:
    ColouredWindow(uint32_t rgb, X11Rect place, const std::string& appName,
                   const std::string& title = "test window")
        : m_connection(xcb_connect(nullptr, nullptr)) {
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        m_window = xcb_generate_id(m_connection);
        const uint32_t values[] = {rgb};
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, screen->root,
                          int16_t(place.x), int16_t(place.y), uint16_t(place.width),
                          uint16_t(place.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          screen->root_visual, XCB_CW_BACK_PIXEL, values);
        std::string wmClass = appName + '\0' + appName + '\0';
        wmClass[appName.size() + 1] = char(std::toupper(wmClass[appName.size() + 1]));
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, m_window, XCB_ATOM_WM_CLASS,
                            XCB_ATOM_STRING, 8, uint32_t(wmClass.size()), wmClass.data());
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, m_window, XCB_ATOM_WM_NAME,
                            XCB_ATOM_STRING, 8, uint32_t(title.size()), title.data());
        // WM_NORMAL_HINTS with a position and size the user chose: placed where asked.
        uint32_t hints[18] = {1 | 2, uint32_t(place.x), uint32_t(place.y), uint32_t(place.width),
                              uint32_t(place.height)};
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, m_window, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
        xcb_map_window(m_connection, m_window);
        xcb_flush(m_connection);
    }
    ~ColouredWindow() {
        close();
        xcb_disconnect(m_connection);
    }
    ColouredWindow(const ColouredWindow&) = delete;
    ColouredWindow& operator=(const ColouredWindow&) = delete;

    xcb_window_t id() const { return m_window; }
    // Asks the window manager to move the window; it moves the frame around it.
    void moveTo(int x, int y) {
        const uint32_t values[] = {uint32_t(x), uint32_t(y)};
        xcb_configure_window(m_connection, m_window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                             values);
        xcb_flush(m_connection);
    }
    void close() {
        if (!m_window)
            return;
        xcb_destroy_window(m_connection, m_window);
        xcb_flush(m_connection);
        m_window = 0;
    }

private:
    xcb_connection_t* m_connection;
    xcb_window_t m_window = 0;
};

// The window's frame as the shareable content lists it once it is mapped, in root pixels with
// the origin at the top left; absent after 10 s. With `differentFrom`, waits for another place.
inline std::optional<X11Rect> listedFrame(X11Connection& connection, xcb_window_t id,
                                          std::optional<X11Rect> differentFrom = std::nullopt) {
    std::optional<X11Rect> frame;
    const bool listed = waitUntil(
        [&] {
            for (const SCWindow& window : X11ShareableContent::fetch(connection).windows) {
                if (window.windowID != id || !window.isOnScreen)
                    continue;
                frame = X11Coordinates::fromGlobal(window.frame, connection.rootHeight());
                return !differentFrom || *frame != *differentFrom;
            }
            return false;
        },
        std::chrono::seconds(10));
    return listed ? frame : std::nullopt;
}
