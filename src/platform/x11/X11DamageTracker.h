#pragma once

#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11Handles.h"

#include <cstdint>

// Whether anything changed in a part of the root window, from XDamage: the server reports
// damage as growing bounding boxes, and each `takeDamage` takes what arrived and starts a fresh
// region, so a change made while a frame is grabbed shows in the next one too. Used by the
// capture thread only.
class X11DamageTracker final {
public:
    X11DamageTracker(xcb_connection_t* connection, xcb_window_t root);

    // False when the server has no XDamage; then nothing is ever reported.
    bool available() const { return bool(m_damage); }
    // One event from the connection's queue; damage inside `area` is noted.
    void handle(const xcb_generic_event_t* event, const X11Rect& area);
    // Whether anything inside the area changed since the last call.
    bool takeDamage();

private:
    xcb_connection_t* m_connection;
    X11Damage m_damage;
    uint8_t m_firstEvent = 0;
    bool m_any = false;
    bool m_damaged = false;
};
