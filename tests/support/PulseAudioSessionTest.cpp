#include "support/PulseAudioSession.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace {
double rms(const std::vector<int16_t>& samples, size_t from = 0) {
    double sum = 0;
    size_t count = 0;
    for (size_t i = from; i < samples.size(); ++i, ++count)
        sum += double(samples[i]) * samples[i];
    return count ? std::sqrt(sum / double(count)) : 0.0;
}
} // namespace

// A private daemon comes up, exports PULSE_SERVER, and a tone played into the null sink can be
// heard on its monitor; before the tone the monitor is silent.
TEST(PulseAudioSessionTest, toneIntoNullSinkReachesItsMonitor) {
    REQUIRE_PULSEAUDIO();
    PulseAudioSession pulse;
    ASSERT_TRUE(pulse.isReady()) << pulse.error();
    EXPECT_EQ(std::getenv("PULSE_SERVER"), pulse.serverAddress());

    const auto silence = pulse.recordMonitor(0.3);
    EXPECT_LT(rms(silence), 50.0);

    ASSERT_TRUE(pulse.startTone(440.0, 1.5, 0.5));
    const auto recorded = pulse.recordMonitor(1.0);
    ASSERT_GT(recorded.size(), 48000u) << "less than half a second of stereo samples arrived";
    // A full-scale-0.5 sine has an RMS of 0.5/sqrt(2) * 32767 ≈ 11585; allow for the tone
    // starting a little after the recording.
    EXPECT_GT(rms(recorded, recorded.size() / 2), 8000.0);
}
