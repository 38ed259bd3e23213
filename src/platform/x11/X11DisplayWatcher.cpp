#include "platform/x11/X11DisplayWatcher.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Handles.h"

#include <xcb/randr.h>

std::optional<X11Rect> currentMonitorPixels(const X11Connection& connection, uint32_t displayID) {
    xcb_connection_t* c = connection.get();
    X11Reply<xcb_randr_get_monitors_reply_t> reply(
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, connection.root(), 1), nullptr));
    if (!reply)
        return std::nullopt;
    for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem;
         xcb_randr_monitor_info_next(&it))
        if (it.data->name == displayID)
            return X11Rect{it.data->x, it.data->y, it.data->width, it.data->height};
    return std::nullopt;
}

X11DisplayWatcher::X11DisplayWatcher(const X11Connection& connection, uint32_t displayID,
                                     X11Rect expected, int ticksBetweenChecks)
    : m_connection(connection), m_displayID(displayID), m_expected(expected),
      m_ticksBetweenChecks(std::max(ticksBetweenChecks, 1)) {}

bool X11DisplayWatcher::tick() {
    if (m_changed)
        return false;
    if (++m_ticks < m_ticksBetweenChecks)
        return true;
    m_ticks = 0;
    const std::optional<X11Rect> now = currentMonitorPixels(m_connection, m_displayID);
    m_changed = !now || now->x != m_expected.x || now->y != m_expected.y ||
                now->width != m_expected.width || now->height != m_expected.height;
    return !m_changed;
}
