#pragma once

#include <QImage>
#include <QString>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

// The whole X screen named by DISPLAY as the server holds it (what a person would see), saved
// as a PNG. False when the server cannot be reached or the file not written.
inline bool saveRootScreenshot(const QString& path) {
    int screenNumber = 0;
    xcb_connection_t* connection = xcb_connect(nullptr, &screenNumber);
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> owner(connection,
                                                                             xcb_disconnect);
    if (xcb_connection_has_error(connection))
        return false;
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber; ++i)
        xcb_screen_next(&it);
    const xcb_screen_t* screen = it.data;
    const xcb_get_image_cookie_t cookie =
        xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root, 0, 0,
                      screen->width_in_pixels, screen->height_in_pixels, ~0u);
    const std::unique_ptr<xcb_get_image_reply_t, decltype(&std::free)> reply(
        xcb_get_image_reply(connection, cookie, nullptr), std::free);
    if (!reply || reply->depth != 24)
        return false;
    // 24-bit depth comes as 32-bit BGRX rows; the padding byte is undefined.
    const QImage image(xcb_get_image_data(reply.get()), screen->width_in_pixels,
                       screen->height_in_pixels, screen->width_in_pixels * 4, QImage::Format_RGB32);
    return image.save(path);
}
