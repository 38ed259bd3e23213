#pragma once

#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11Handles.h"

#include <cstdint>

struct xcb_xfixes_get_cursor_image_reply_t;

// The pointer's picture and where it lies on the root, as XFixes shows it to clients: the
// server draws the cursor on its own, so grabs never hold it. Read by the capture thread.
class X11CursorImage final {
public:
    // Whether the server shows the pointer's picture (XFixes 4 or later).
    static bool isAvailable(xcb_connection_t* connection);
    // The picture now; empty when the server did not answer.
    static X11CursorImage read(xcb_connection_t* connection);

    explicit operator bool() const { return bool(m_reply); }
    // Whether another picture or another place would show.
    bool operator!=(const X11CursorImage& other) const;

    // Draws the picture into a BGRA picture that shows the root from `origin` on, scaled by
    // `scaleX` and `scaleY`; the cursor itself keeps its size.
    void blendInto(uint8_t* pixels, int stride, int width, int height, const X11Rect& origin,
                   double scaleX, double scaleY) const;

private:
    X11Reply<xcb_xfixes_get_cursor_image_reply_t> m_reply;
    int m_x = 0, m_y = 0; // the picture's top left on the root
};
