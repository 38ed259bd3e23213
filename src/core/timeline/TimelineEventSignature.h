#pragma once

#include <cstdint>
#include <vector>

// A cheap fingerprint of a list of timed elements (zoom events, camera keyframes): equal
// signatures tell the static track view that it need not rebuild. Length plus the first and
// last timestamps is enough because those lists only change by appending or by replacement.
struct TimelineEventSignature {
    std::int64_t count = 0;
    double firstTime = 0.0;
    double lastTime = 0.0;

    template <typename Element>
    static TimelineEventSignature of(const std::vector<Element>& elements) {
        if (elements.empty()) {
            return {};
        }
        return {static_cast<std::int64_t>(elements.size()), elements.front().timestamp,
                elements.back().timestamp};
    }

    bool operator==(const TimelineEventSignature&) const = default;
};
