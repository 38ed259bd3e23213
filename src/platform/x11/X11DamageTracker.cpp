#include "platform/x11/X11DamageTracker.h"

#include <utility>

namespace {

bool intersects(const X11Rect& a, int x, int y, int width, int height) {
    return a.x < x + width && x < a.x + a.width && a.y < y + height && y < a.y + a.height;
}

} // namespace

X11DamageTracker::X11DamageTracker(xcb_connection_t* connection, xcb_window_t root)
    : m_connection(connection) {
    const xcb_query_extension_reply_t* extension =
        xcb_get_extension_data(connection, &xcb_damage_id);
    if (!extension || !extension->present)
        return;
    const X11Reply<xcb_damage_query_version_reply_t> version(xcb_damage_query_version_reply(
        connection,
        xcb_damage_query_version(connection, XCB_DAMAGE_MAJOR_VERSION, XCB_DAMAGE_MINOR_VERSION),
        nullptr));
    if (!version)
        return;
    m_firstEvent = extension->first_event;
    m_damage = X11Damage(connection, xcb_generate_id(connection));
    xcb_damage_create(connection, m_damage.id(), root, XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
    xcb_flush(connection);
}

void X11DamageTracker::handle(const xcb_generic_event_t* event, const X11Rect& area) {
    if (!m_damage || (event->response_type & 0x7f) != m_firstEvent + XCB_DAMAGE_NOTIFY)
        return;
    const auto* notify = reinterpret_cast<const xcb_damage_notify_event_t*>(event);
    m_any = true;
    m_damaged = m_damaged || intersects(area, notify->area.x, notify->area.y, notify->area.width,
                                        notify->area.height);
}

bool X11DamageTracker::takeDamage() {
    if (std::exchange(m_any, false)) {
        xcb_damage_subtract(m_connection, m_damage.id(), XCB_NONE, XCB_NONE);
        xcb_flush(m_connection);
    }
    return std::exchange(m_damaged, false);
}
