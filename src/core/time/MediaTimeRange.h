#pragma once

#include "core/time/MediaTime.h"

// A span of a media time line: where it starts and how long it lasts. A plain value.
struct MediaTimeRange {
    MediaTime start = MediaTime::zero();
    MediaTime duration = MediaTime::zero();

    MediaTime end() const { return start + duration; }
    // Start included, end excluded, as frames are assigned to spans.
    bool containsTime(const MediaTime& time) const { return time >= start && time < end(); }
    bool operator==(const MediaTimeRange&) const = default;
};
