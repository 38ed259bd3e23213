#pragma once

#include "support/ScreenAnimation.h"

#include <xcb/xcb.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

// A full-screen window that flashes white for 150 ms once a second while a click is written
// into the PulseAudio sink `sink`. The sound goes through a player with a 10 ms buffer behind
// the smallest pipe, so every write waits for the sink's clock and a click leaves as its flash
// is drawn. With `movingBar`, a small bar also moves along the bottom of the window every 30 ms,
// so that a recording of it has a new picture at every frame (the flash is read higher up).
class FlashAndClickScene {
public:
    explicit FlashAndClickScene(const std::string& sink, bool movingBar = false)
        : m_movingBar(movingBar) {
        int fds[2];
        if (::pipe(fds) != 0)
            return;
        fcntl(fds[1], F_SETPIPE_SZ, 4096);
        m_player = fork();
        if (m_player == 0) {
            dup2(fds[0], STDIN_FILENO);
            ::close(fds[1]);
            execlp("pacat", "pacat", ("--device=" + sink).c_str(), "--rate=48000", "--channels=1",
                   "--format=float32le", "--latency-msec=10", static_cast<char*>(nullptr));
            _exit(127);
        }
        ::close(fds[0]);
        m_sound = fds[1];
        m_thread = std::thread([this] { run(); });
    }
    ~FlashAndClickScene() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join(); // each write waits 10 ms at most, or fails once the player is gone
        if (m_sound >= 0)
            ::close(m_sound);
        if (m_player > 0) {
            kill(m_player, SIGKILL);
            waitpid(m_player, nullptr, 0);
        }
    }

private:
    void run() {
        xcb_connection_t* c = xcb_connect(nullptr, nullptr);
        const xcb_window_t window = coverScreen(c, 0x202020);
        if (!window) {
            xcb_disconnect(c);
            return;
        }
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        const xcb_gcontext_t gc = xcb_generate_id(c);
        xcb_create_gc(c, gc, window, 0, nullptr);
        xcb_flush(c);
        constexpr int chunk = 480; // 10 ms
        std::vector<float> silence(chunk, 0.0f), click(chunk, 0.0f);
        for (int i = 0; i < chunk / 2; ++i)
            click[size_t(i)] = (i / 12) % 2 ? 0.8f : -0.8f;
        for (int64_t n = 0; !m_stop; ++n) {
            const int64_t phase = n % 100;
            if (phase == 0 || phase == 15) {
                const uint32_t colour = phase == 0 ? 0xffffff : 0x202020;
                xcb_change_window_attributes(c, window, XCB_CW_BACK_PIXEL, &colour);
                xcb_clear_area(c, 0, window, 0, 0, 0, 0);
                xcb_flush(c);
            }
            if (m_movingBar && n % 3 == 0) {
                // One bar in each half of the screen, so that either of two monitors sees one.
                const uint32_t bar = 0x40c040;
                const uint16_t half = uint16_t(screen->width_in_pixels / 2);
                const int16_t y = int16_t(screen->height_in_pixels - 60);
                const int16_t x = int16_t((n / 3 * 16) % (half - 40));
                xcb_clear_area(c, 0, window, 0, y, screen->width_in_pixels, 40);
                xcb_change_gc(c, gc, XCB_GC_FOREGROUND, &bar);
                const xcb_rectangle_t bars[] = {{x, y, 40, 40}, {int16_t(x + half), y, 40, 40}};
                xcb_poly_fill_rectangle(c, window, gc, 2, bars);
                xcb_flush(c);
            }
            const std::vector<float>& samples = phase == 0 ? click : silence;
            if (::write(m_sound, samples.data(), samples.size() * sizeof(float)) < 0)
                break;
        }
        xcb_disconnect(c);
    }

    bool m_movingBar = false;
    pid_t m_player = -1;
    int m_sound = -1;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
};
