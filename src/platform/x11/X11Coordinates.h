#pragma once

#include "core/geometry/Rect.h"

// A rectangle as the X server gives it: pixels of the root window, origin at its top left.
struct X11Rect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool operator==(const X11Rect&) const = default;
};

// The one place where the X server's top-left root coordinates meet the core's global points,
// whose origin is the bottom left of the root window. Every other file converts through here.
namespace X11Coordinates {

inline Rect toGlobal(const X11Rect& rect, int rootHeight) {
    return Rect(rect.x, rootHeight - rect.y - rect.height, rect.width, rect.height);
}

inline Point pointToGlobal(int x, int y, int rootHeight) {
    return Point{double(x), double(rootHeight - y)};
}

// Fractions of a point are cut towards the rectangle's inside, so a grab never leaves the root.
inline X11Rect fromGlobal(const Rect& rect, int rootHeight) {
    const int width = int(rect.width());
    const int height = int(rect.height());
    return X11Rect{int(rect.minX()), rootHeight - int(rect.minY()) - height, width, height};
}

} // namespace X11Coordinates
