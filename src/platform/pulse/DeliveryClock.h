#pragma once

#include "core/time/MediaTime.h"

#include <algorithm>
#include <cstdint>

// Times a stream's samples from the moments they are delivered. A delivery's own reading of the
// host clock is late by however long the thread waited, tens of milliseconds under load;
// stamping each block with it would make a continuous stream look full of holes and overlaps.
// This clock counts samples instead and follows the host clock slowly: at once toward an earlier
// reading (a prompt delivery shows the true time best), by at most a tenth of a millisecond a
// block toward a later one (enough to follow any real drift between the sound card and the host
// clock), and it starts anew when the two are a fifth of a second apart (a stall, a new device).
// Thread: one.
class DeliveryClock final {
public:
    explicit DeliveryClock(int sampleRate) : m_rate(sampleRate) {}

    // The start of a block of `frames` samples that the delivery puts at `measured`.
    MediaTime stamp(MediaTime measured, int64_t frames) {
        const MediaTime expected = m_anchor + MediaTime::make(m_count, m_rate);
        const double error = m_started ? (measured - expected).seconds() : 0.0;
        if (!m_started || error > restartSeconds || error < -restartSeconds) {
            m_anchor = measured;
            m_count = 0;
            m_started = true;
        } else if (error < 0) {
            m_anchor = m_anchor + MediaTime::fromSeconds(error, nanoseconds);
        } else {
            m_anchor = m_anchor + MediaTime::fromSeconds(std::min(error, slewSeconds), nanoseconds);
        }
        const MediaTime start = m_anchor + MediaTime::make(m_count, m_rate);
        m_count += frames;
        return start;
    }
    void reset() { m_started = false; }

private:
    static constexpr double restartSeconds = 0.2;
    static constexpr double slewSeconds = 0.0001;
    static constexpr int32_t nanoseconds = 1'000'000'000;

    int m_rate;
    bool m_started = false;
    MediaTime m_anchor = MediaTime::zero();
    int64_t m_count = 0;
};
