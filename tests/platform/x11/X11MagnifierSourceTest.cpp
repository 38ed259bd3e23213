#include "platform/x11/X11MagnifierSource.h"

#include "MappedWindow.h"
#include "platform/x11/X11Connection.h"

#include "support/EventLoop.h"
#include "support/XvfbSession.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

XvfbSession::Options desktop() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    options.windowManager = true;
    return options;
}

QRgb pixel(const std::optional<QImage>& image, int x, int y) {
    return image ? image->pixel(x, y) & 0xffffff : 0x123456;
}

} // namespace

// What lies under the magnifier, read from the windows themselves: a window of the program's
// own on top is left out, so the one below shows where the screen shows ours; windows the
// window manager framed and windows that come later are seen; what no window covers is black,
// and so is what lies off the screen.
TEST(X11MagnifierSourceTest, ReadsWhatLiesUnderTheProgramsOwnWindows) {
    START_XVFB(session, desktop());
    X11Connection connection;

    ColouredWindow below(0xff0000, X11Rect{0, 0, 300, 300}, "alpha");
    ColouredWindow above(0x00ff00, X11Rect{150, 150, 300, 300}, "beta");
    ColouredWindow own(0x0000ff, X11Rect{200, 200, 100, 100}, "tavelquiston");
    X11MagnifierSource source(connection, [&](xcb_window_t window) { return window == own.id(); });
    ASSERT_TRUE(source.isAvailable());

    const X11Rect area{100, 100, 300, 300};
    std::optional<QImage> read;
    // The window manager frames and maps the windows in its own time.
    ASSERT_TRUE(waitUntil(
        [&] {
            read = source.read(area);
            return pixel(read, 20, 20) == 0xff0000 && pixel(read, 250, 250) == 0x00ff00;
        },
        10s))
        << std::hex << pixel(read, 20, 20) << " " << pixel(read, 250, 250);
    ASSERT_EQ(read->size(), QSize(300, 300));
    // Where ours covers the green one, the green one shows.
    EXPECT_EQ(pixel(read, 150, 150), 0x00ff00u);
    EXPECT_EQ(pixel(read, 280, 20), 0x000000u);
    // A rectangle all inside one window, and one all inside ours (which hides nothing).
    EXPECT_EQ(pixel(source.read(X11Rect{330, 330, 40, 40}), 20, 20), 0x00ff00u);
    EXPECT_EQ(pixel(source.read(X11Rect{230, 250, 40, 40}), 20, 20), 0x00ff00u);
    // The screen itself shows ours there, as the magnifier would show itself.
    X11Reply<xcb_get_image_reply_t> screen(
        xcb_get_image_reply(connection.get(),
                            xcb_get_image(connection.get(), XCB_IMAGE_FORMAT_Z_PIXMAP,
                                          connection.root(), 250, 250, 1, 1, ~0u),
                            nullptr));
    ASSERT_TRUE(screen);
    EXPECT_EQ(*reinterpret_cast<const uint32_t*>(xcb_get_image_data(screen.get())) & 0xffffff,
              0x0000ffu);

    // A window that came after the source was made, and a rectangle running off the screen.
    ColouredWindow later(0xffff00, X11Rect{480, 300, 100, 100}, "gamma");
    ASSERT_TRUE(waitUntil(
        [&] {
            return pixel(source.read(X11Rect{450, 300, 300, 200}), 80, 60) == 0xffff00;
        },
        10s));
    const std::optional<QImage> edge = source.read(X11Rect{450, 300, 300, 200});
    EXPECT_EQ(pixel(edge, 250, 60), 0x000000u); // past the screen's right edge

    // A window that goes is gone from the next read.
    above.close();
    EXPECT_TRUE(waitUntil([&] { return pixel(source.read(area), 250, 250) != 0x00ff00; }, 10s));
}
