#pragma once

#include <string>

// Tick spacing of the timeline's time ruler, in seconds. A `minor` of 0 means no minor ticks.
struct RulerIntervals {
    double major = 1.0;
    double minor = 0.0;
    bool operator==(const RulerIntervals&) const = default;
};

// The finest major interval whose labels fit, one label per 50 points at most.
RulerIntervals calculateIntervals(double duration, double availableWidth);

// A ruler label for time `t`, as terse as the interval allows: "45s", "1:05", "1:02:03", "2:15:00".
std::string formatTimeAdaptive(double t, double interval);
