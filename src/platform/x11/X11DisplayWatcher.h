#pragma once

#include "platform/x11/X11Coordinates.h"

#include <cstdint>
#include <optional>
#include <string>

class X11Connection;

// Where a RandR monitor is now, in root pixels; absent when the server no longer has it.
std::optional<X11Rect> currentMonitorPixels(const X11Connection& connection, uint32_t displayID);

// Notices when the monitor a display or area recording grabs from is removed, moved or
// resized. It asks the server at most once per interval of ticks: a round trip a second costs
// nothing beside the grab, and catches every way a monitor can change. Used by the capture
// thread only.
class X11DisplayWatcher final {
public:
    X11DisplayWatcher(const X11Connection& connection, uint32_t displayID, X11Rect expected,
                      int ticksBetweenChecks);

    // False once the monitor is gone or elsewhere; stays false.
    bool tick();
    // What was seen when tick() said so, for the log: where the monitor went, or that it is gone.
    std::string change() const;

private:
    const X11Connection& m_connection;
    uint32_t m_displayID;
    X11Rect m_expected;
    int m_ticksBetweenChecks;
    int m_ticks = 0;
    bool m_changed = false;
    std::optional<X11Rect> m_seen;
};
