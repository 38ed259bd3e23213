#pragma once

#include "core/geometry/Rect.h"

#include <cmath>

// Where the drawn cursor is at one moment and how it looks. `position` is normalised with the
// origin at the top left; `velocity` is in normalised units per second.
struct CursorState {
    Point position{0.5, 0.5};
    double scale = 1.0;
    bool isVisible = true;
    Point velocity{0.0, 0.0};
    double motionBlurAmount = 0.0;

    double speed() const { return std::hypot(velocity.x, velocity.y); }
    // Direction of motion in radians, for the blur's smear.
    double motionBlurAngle() const { return std::atan2(velocity.y, velocity.x); }

    static CursorState defaultState() { return {}; }
    static CursorState hidden() { return {{0.0, 0.0}, 1.0, false, {0.0, 0.0}, 0.0}; }

    bool operator==(const CursorState&) const = default;
};
