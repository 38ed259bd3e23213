#include "platform/x11/X11DisplayWatcher.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Handles.h"

#include <xcb/randr.h>

namespace {

// The server's list of monitors; null when it did not answer.
X11Reply<xcb_randr_get_monitors_reply_t> monitorsOf(const X11Connection& connection) {
    xcb_connection_t* c = connection.get();
    return X11Reply<xcb_randr_get_monitors_reply_t>(
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, connection.root(), 1), nullptr));
}

std::optional<X11Rect> monitorIn(const xcb_randr_get_monitors_reply_t* reply, uint32_t displayID) {
    for (auto it = xcb_randr_get_monitors_monitors_iterator(reply); it.rem;
         xcb_randr_monitor_info_next(&it))
        if (it.data->name == displayID)
            return X11Rect{it.data->x, it.data->y, it.data->width, it.data->height};
    return std::nullopt;
}

} // namespace

std::optional<X11Rect> currentMonitorPixels(const X11Connection& connection, uint32_t displayID) {
    const auto reply = monitorsOf(connection);
    return reply ? monitorIn(reply.get(), displayID) : std::nullopt;
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
    const auto reply = monitorsOf(m_connection);
    // No answer says nothing about the monitor: a broken connection is noticed on its own, and
    // anything else is asked again at the next interval.
    if (!reply)
        return true;
    m_seen = monitorIn(reply.get(), m_displayID);
    m_changed = !m_seen || m_seen->x != m_expected.x || m_seen->y != m_expected.y ||
                m_seen->width != m_expected.width || m_seen->height != m_expected.height;
    return !m_changed;
}

std::string X11DisplayWatcher::change() const {
    const auto place = [](const X11Rect& r) {
        return std::to_string(r.width) + "x" + std::to_string(r.height) + "+" +
               std::to_string(r.x) + "+" + std::to_string(r.y);
    };
    if (!m_changed)
        return {};
    return m_seen ? "now " + place(*m_seen) + ", was " + place(m_expected)
                  : "the monitor is gone, was " + place(m_expected);
}
