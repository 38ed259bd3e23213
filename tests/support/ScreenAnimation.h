#pragma once

#include <xcb/xcb.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

// Maps an unmanaged window of `colour` over the whole screen of the connection; 0 when there is
// no server.
inline xcb_window_t coverScreen(xcb_connection_t* c, uint32_t colour) {
    if (xcb_connection_has_error(c))
        return 0;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_window_t window = xcb_generate_id(c);
    const uint32_t values[] = {colour, 1};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, screen->width_in_pixels,
                      screen->height_in_pixels, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_map_window(c, window);
    return window;
}

// Keeps the whole screen of the current DISPLAY changing: one client repaints a screen-sized,
// unmanaged window in two colours by turns every `period`, until destroyed. One long-lived
// client instead of a loop of xsetroot runs, which would leave their colours on the server and
// use up its client slots.
class ScreenAnimation {
public:
    explicit ScreenAnimation(std::chrono::milliseconds period = std::chrono::milliseconds(15))
        : m_thread([this, period] { run(period); }) {}
    ~ScreenAnimation() {
        m_stop = true;
        m_thread.join();
    }
    ScreenAnimation(const ScreenAnimation&) = delete;
    ScreenAnimation& operator=(const ScreenAnimation&) = delete;

private:
    void run(std::chrono::milliseconds period) {
        xcb_connection_t* c = xcb_connect(nullptr, nullptr);
        const xcb_window_t window = coverScreen(c, 0x204060);
        if (!window) {
            xcb_disconnect(c);
            return;
        }
        xcb_flush(c);
        for (uint32_t n = 0; !m_stop; ++n) {
            const uint32_t colour = n % 2 ? 0x604020 : 0x204060;
            xcb_change_window_attributes(c, window, XCB_CW_BACK_PIXEL, &colour);
            xcb_clear_area(c, 0, window, 0, 0, 0, 0);
            xcb_flush(c);
            std::this_thread::sleep_for(period);
        }
        xcb_disconnect(c);
    }

    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
