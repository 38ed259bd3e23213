#pragma once

#include <compare>
#include <cstdint>

// A point or span on a media time line: a rational value/timescale with flags and an epoch,
// following the rules of the platform media time the recorder was designed around. Arithmetic
// across timescales is exact whenever the common timescale fits in 32 bits, so adding many
// offsets never drifts. FFmpeg time bases appear only at the boundary (inTimeBase/fromTimeBase).
// A plain value; thread-safe as any value is.
struct MediaTime {
    enum Flag : uint32_t {
        valid = 1u << 0,
        hasBeenRounded = 1u << 1,
        positiveInfinity = 1u << 2,
        negativeInfinity = 1u << 3,
        indefinite = 1u << 4,
    };

    int64_t value = 0;
    int32_t timescale = 0;
    uint32_t flags = 0;
    int64_t epoch = 0;

    static constexpr MediaTime make(int64_t value, int32_t timescale) {
        if (timescale <= 0)
            return invalid();
        return MediaTime{value, timescale, Flag::valid, 0};
    }
    static constexpr MediaTime zero() { return MediaTime{0, 1, Flag::valid, 0}; }
    static constexpr MediaTime invalid() { return MediaTime{}; }
    static constexpr MediaTime positiveInfinityTime() {
        return MediaTime{0, 0, Flag::valid | Flag::positiveInfinity, 0};
    }
    static constexpr MediaTime negativeInfinityTime() {
        return MediaTime{0, 0, Flag::valid | Flag::negativeInfinity, 0};
    }
    // The nearest value at the preferred timescale; NaN gives an invalid time, infinities the
    // matching infinite time. A value too large for 64 bits lowers the timescale (rounded).
    static MediaTime fromSeconds(double seconds, int32_t preferredTimescale);
    // A timestamp in an FFmpeg time base num/den.
    static MediaTime fromTimeBase(int64_t timestamp, int num, int den);
    // The host clock (CLOCK_MONOTONIC) now, in nanoseconds.
    static MediaTime hostTimeNow();

    bool isValid() const { return (flags & Flag::valid) != 0; }
    bool isPositiveInfinity() const { return isValid() && (flags & Flag::positiveInfinity); }
    bool isNegativeInfinity() const { return isValid() && (flags & Flag::negativeInfinity); }
    bool isIndefinite() const { return isValid() && (flags & Flag::indefinite); }
    bool isNumeric() const {
        return isValid() &&
               !(flags & (Flag::positiveInfinity | Flag::negativeInfinity | Flag::indefinite));
    }

    double seconds() const;
    // The same time at another timescale, rounded to the nearest value.
    MediaTime convertScale(int32_t newTimescale) const;
    // The time in an FFmpeg time base num/den, rounded to the nearest tick. Only for numeric times.
    int64_t inTimeBase(int num, int den) const;

    friend MediaTime operator+(const MediaTime& a, const MediaTime& b);
    friend MediaTime operator-(const MediaTime& a, const MediaTime& b);
    // Ordering of the platform's time comparison: invalid times are equal to each other and
    // above everything; +infinity is above every valid time, -infinity below; otherwise by
    // epoch, then by value. 1/2 and 2/4 compare equal.
    friend std::strong_ordering operator<=>(const MediaTime& a, const MediaTime& b);
    friend bool operator==(const MediaTime& a, const MediaTime& b) { return (a <=> b) == 0; }
};
