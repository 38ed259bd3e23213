#include "core/time/MediaTime.h"

#include <time.h>

#include <cmath>
#include <limits>
#include <numeric>

namespace {
using Int128 = __int128;

constexpr int64_t int64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t int64Min = std::numeric_limits<int64_t>::min();
constexpr int32_t int32Max = std::numeric_limits<int32_t>::max();

// value × num / den rounded half away from zero, in 128 bits so nothing overflows on the way.
Int128 rescaleRounded(Int128 value, Int128 num, Int128 den) {
    Int128 product = value * num;
    Int128 half = den / 2;
    return product >= 0 ? (product + half) / den : -((-product + half) / den);
}

MediaTime fromWide(Int128 value, int32_t timescale, uint32_t extraFlags, int64_t epoch) {
    if (value > int64Max)
        return MediaTime::positiveInfinityTime();
    if (value < int64Min)
        return MediaTime::negativeInfinityTime();
    return MediaTime{static_cast<int64_t>(value), timescale, MediaTime::valid | extraFlags, epoch};
}

// The sum of two numeric times: exact at the least common timescale when it fits in 32 bits,
// else at the larger timescale with the rounded flag set.
MediaTime addNumeric(const MediaTime& a, const MediaTime& b, bool subtract) {
    uint32_t rounded = (a.flags | b.flags) & MediaTime::hasBeenRounded;
    int64_t lcm = std::lcm(static_cast<int64_t>(a.timescale), static_cast<int64_t>(b.timescale));
    int32_t scale;
    Int128 av;
    Int128 bv;
    if (lcm <= int32Max) {
        scale = static_cast<int32_t>(lcm);
        av = Int128(a.value) * (lcm / a.timescale);
        bv = Int128(b.value) * (lcm / b.timescale);
    } else {
        scale = std::max(a.timescale, b.timescale);
        av = rescaleRounded(a.value, scale, a.timescale);
        bv = rescaleRounded(b.value, scale, b.timescale);
        if (av * a.timescale != Int128(a.value) * scale ||
            bv * b.timescale != Int128(b.value) * scale)
            rounded = MediaTime::hasBeenRounded;
    }
    return fromWide(subtract ? av - bv : av + bv, scale, rounded, a.epoch);
}

// Rank of the non-numeric kinds for ordering: -inf < numeric < +inf < invalid.
int kindRank(const MediaTime& t) {
    if (!t.isValid())
        return 3;
    if (t.isPositiveInfinity())
        return 2;
    if (t.isNegativeInfinity())
        return 0;
    return 1;
}
} // namespace

MediaTime MediaTime::fromSeconds(double seconds, int32_t preferredTimescale) {
    if (std::isnan(seconds) || preferredTimescale <= 0)
        return invalid();
    if (std::isinf(seconds))
        return seconds > 0 ? positiveInfinityTime() : negativeInfinityTime();
    int32_t scale = preferredTimescale;
    uint32_t extra = 0;
    // Lower the timescale until the value fits; the time is then only approximate.
    while (std::fabs(seconds * scale) >= 9.2e18 && scale > 1) {
        scale /= 2;
        extra = hasBeenRounded;
    }
    double scaled = seconds * scale;
    if (std::fabs(scaled) >= 9.2e18)
        return seconds > 0 ? positiveInfinityTime() : negativeInfinityTime();
    double nearest = std::round(scaled);
    if (nearest != scaled)
        extra = hasBeenRounded;
    return MediaTime{static_cast<int64_t>(nearest), scale, valid | extra, 0};
}

MediaTime MediaTime::fromTimeBase(int64_t timestamp, int num, int den) {
    if (num <= 0 || den <= 0)
        return invalid();
    if (num == 1)
        return make(timestamp, den);
    Int128 wide = Int128(timestamp) * num;
    if (wide > int64Max || wide < int64Min)
        return wide > 0 ? positiveInfinityTime() : negativeInfinityTime();
    return make(static_cast<int64_t>(wide), den);
}

MediaTime MediaTime::hostTimeNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return make(int64_t(now.tv_sec) * 1000000000 + now.tv_nsec, 1000000000);
}

double MediaTime::seconds() const {
    if (!isValid() || isIndefinite())
        return std::numeric_limits<double>::quiet_NaN();
    if (isPositiveInfinity())
        return std::numeric_limits<double>::infinity();
    if (isNegativeInfinity())
        return -std::numeric_limits<double>::infinity();
    // Whole and fractional parts separately, so large nanosecond values keep their precision.
    int64_t whole = value / timescale;
    int64_t rest = value % timescale;
    return double(whole) + double(rest) / double(timescale);
}

MediaTime MediaTime::convertScale(int32_t newTimescale) const {
    if (!isNumeric() || newTimescale <= 0)
        return newTimescale <= 0 ? invalid() : *this;
    Int128 scaled = rescaleRounded(value, newTimescale, timescale);
    uint32_t extra = flags & hasBeenRounded;
    if (scaled * timescale != Int128(value) * newTimescale)
        extra = hasBeenRounded;
    return fromWide(scaled, newTimescale, extra, epoch);
}

int64_t MediaTime::inTimeBase(int num, int den) const {
    if (!isNumeric() || num <= 0 || den <= 0)
        return int64Min;
    Int128 ticks = rescaleRounded(value, den, Int128(timescale) * num);
    return ticks > int64Max ? int64Max : ticks < int64Min ? int64Min : static_cast<int64_t>(ticks);
}

MediaTime operator+(const MediaTime& a, const MediaTime& b) {
    if (!a.isValid() || !b.isValid() || a.isIndefinite() || b.isIndefinite() || a.epoch != b.epoch)
        return MediaTime::invalid();
    bool aInf = a.isPositiveInfinity() || a.isNegativeInfinity();
    bool bInf = b.isPositiveInfinity() || b.isNegativeInfinity();
    if (aInf && bInf)
        return a.isPositiveInfinity() == b.isPositiveInfinity() ? a : MediaTime::invalid();
    if (aInf)
        return a;
    if (bInf)
        return b;
    return addNumeric(a, b, false);
}

MediaTime operator-(const MediaTime& a, const MediaTime& b) {
    if (!a.isValid() || !b.isValid() || a.isIndefinite() || b.isIndefinite() || a.epoch != b.epoch)
        return MediaTime::invalid();
    bool aInf = a.isPositiveInfinity() || a.isNegativeInfinity();
    bool bInf = b.isPositiveInfinity() || b.isNegativeInfinity();
    if (aInf && bInf)
        return a.isPositiveInfinity() != b.isPositiveInfinity() ? a : MediaTime::invalid();
    if (aInf)
        return a;
    if (bInf)
        return b.isPositiveInfinity() ? MediaTime::negativeInfinityTime()
                                      : MediaTime::positiveInfinityTime();
    return addNumeric(a, b, true);
}

std::strong_ordering operator<=>(const MediaTime& a, const MediaTime& b) {
    int ra = kindRank(a);
    int rb = kindRank(b);
    if (ra != rb || ra != 1)
        return ra <=> rb;
    if (a.epoch != b.epoch)
        return a.epoch <=> b.epoch;
    return Int128(a.value) * b.timescale <=> Int128(b.value) * a.timescale;
}
