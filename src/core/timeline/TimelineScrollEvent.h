#pragma once

#include "core/timeline/TimelineViewport.h"

// Modifier keys held during a scroll gesture. Command stands for the Control key and Option for
// Alt on this platform; both make a scroll zoom the timeline.
enum class TimelineModifier : unsigned {
    none = 0,
    shift = 1u << 0,
    control = 1u << 1,
    option = 1u << 2,
    command = 1u << 3,
};

constexpr TimelineModifier operator|(TimelineModifier a, TimelineModifier b) {
    return static_cast<TimelineModifier>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

constexpr bool contains(TimelineModifier flags, TimelineModifier flag) {
    return (static_cast<unsigned>(flags) & static_cast<unsigned>(flag)) != 0;
}

// One scroll or trackpad gesture over the timeline, deltas in view points.
struct TimelineScrollEvent {
    double locationX = 0.0;
    double scrollingDeltaX = 0.0;
    double scrollingDeltaY = 0.0;
    TimelineModifier modifierFlags = TimelineModifier::none;
};

// Zooms (Command or Option held) or pans the viewport for a scroll over a timeline `width`
// points wide. Returns whether the timeline took the event: an ordinary vertical scroll is left
// to the view around the timeline, so that the editor's panel still scrolls.
bool handleTimelineScroll(const TimelineScrollEvent& event, TimelineViewport& viewport,
                          double width);
