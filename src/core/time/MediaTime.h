#pragma once

#include <cmath>
#include <cstdint>

// A media time as the writers and capture engines exchange it: a rational number of seconds on
// the host clock. The coordinator only builds offsets and reads seconds; the full arithmetic
// lives with the writer.
struct MediaTime {
    static constexpr uint32_t validFlag = 1;

    int64_t value = 0;
    int32_t timescale = 0;
    uint32_t flags = 0;
    int64_t epoch = 0;

    static MediaTime zero() { return MediaTime{0, 1, validFlag, 0}; }
    static MediaTime fromSeconds(double seconds, int32_t preferredTimescale) {
        return MediaTime{std::llround(seconds * preferredTimescale), preferredTimescale, validFlag,
                         0};
    }

    bool isValid() const { return (flags & validFlag) != 0 && timescale > 0; }
    double seconds() const { return isValid() ? double(value) / double(timescale) : 0.0; }

    bool operator==(const MediaTime&) const = default;
};
