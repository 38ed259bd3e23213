#include "core/timeline/TimelineScrollEvent.h"

#include <algorithm>
#include <cmath>

bool handleTimelineScroll(const TimelineScrollEvent& event, TimelineViewport& viewport,
                          double width) {
    // Trackpads send tiny deltas at the end of a gesture; they are swallowed so that the
    // timeline does not jitter, but still count as handled.
    constexpr double deltaThreshold = 0.1;
    if (!(viewport.duration > 0.0) || !(width > 0.0)) {
        return false;
    }
    const double dx = event.scrollingDeltaX;
    const double dy = event.scrollingDeltaY;

    if (contains(event.modifierFlags, TimelineModifier::command) ||
        contains(event.modifierFlags, TimelineModifier::option)) {
        const double value = std::abs(dx) < std::abs(dy) ? dy : -dx;
        if (!(std::abs(value) > deltaThreshold)) {
            return true;
        }
        const double factor = std::clamp(std::exp(value * 0.01), 0.5, 2.0);
        viewport.zoom(factor, viewport.xToTime(event.locationX, width));
        return true;
    }

    double value = 0.0;
    if (std::abs(dy) < std::abs(dx)) {
        value = dx;
    } else if (contains(event.modifierFlags, TimelineModifier::shift)) {
        value = dy;
    } else {
        return false;
    }
    if (!(std::abs(value) > deltaThreshold)) {
        return true;
    }
    viewport.pan(-(value / width) * viewport.visibleDuration());
    return true;
}
