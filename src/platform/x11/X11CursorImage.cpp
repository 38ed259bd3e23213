#include "platform/x11/X11CursorImage.h"

#include "platform/x11/X11FramePixels.h"

#include <xcb/xfixes.h>

bool X11CursorImage::isAvailable(xcb_connection_t* connection) {
    const xcb_query_extension_reply_t* extension =
        xcb_get_extension_data(connection, &xcb_xfixes_id);
    if (!extension || !extension->present)
        return false;
    // The version must be asked before any other XFixes request is accepted.
    const X11Reply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
        connection, xcb_xfixes_query_version(connection, 4, 0), nullptr));
    return version != nullptr;
}

X11CursorImage X11CursorImage::read(xcb_connection_t* connection) {
    X11CursorImage image;
    image.m_reply.reset(xcb_xfixes_get_cursor_image_reply(
        connection, xcb_xfixes_get_cursor_image(connection), nullptr));
    if (image.m_reply) {
        image.m_x = image.m_reply->x - image.m_reply->xhot;
        image.m_y = image.m_reply->y - image.m_reply->yhot;
    }
    return image;
}

bool X11CursorImage::operator!=(const X11CursorImage& other) const {
    if (!m_reply || !other.m_reply)
        return bool(m_reply) != bool(other.m_reply);
    return m_x != other.m_x || m_y != other.m_y ||
           m_reply->cursor_serial != other.m_reply->cursor_serial;
}

void X11CursorImage::blendInto(uint8_t* pixels, int stride, int width, int height,
                               const X11Rect& origin, double scaleX, double scaleY) const {
    if (!m_reply)
        return;
    X11FramePixels::blendCursor(xcb_xfixes_get_cursor_image_cursor_image(m_reply.get()),
                                m_reply->width, m_reply->height, int((m_x - origin.x) * scaleX),
                                int((m_y - origin.y) * scaleY), pixels, stride, width, height);
}
