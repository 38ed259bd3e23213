#include "media/MediaWriter.h"

#include "media/DecodedAudio.h"
#include "media/SyntheticMedia.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace {

constexpr int block = 480; // 10 ms at 48 kHz

// A constant level on both channels: summed with a tone it lifts the whole wave.
AudioBuffer level(float value, MediaTime pts) {
    AudioBuffer buffer = AudioBuffer::allocate(2, 48000, block, pts);
    for (int channel = 0; channel < 2; ++channel)
        std::fill_n(buffer.mutableChannelData(channel), block, value);
    return buffer;
}

bool appendWaiting(MediaWriter& writer, const AudioBuffer& buffer, bool microphone) {
    for (int attempt = 0; attempt < 2000; ++attempt) {
        if (writer.appendAudioBuffer(buffer, 0, microphone))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

// One second of system tone, and the microphone's constant level from `micFrom` seconds on,
// its host-clock stamps off by up to 3 ms either way, both on the one audio input of a FLAC
// file (lossless, no priming), decoded back.
DecodedAudio recordBoth(double micFrom) {
    ScratchFolder folder;
    const auto path = folder.file("mix.mp4");
    WriterConfiguration configuration;
    configuration.outputURL = path;
    configuration.outputFormat = OutputFormat::mp4;
    configuration.audioSettings.format = WriterConfiguration::AudioFormat::flac;
    MediaWriter writer;
    writer.configure(configuration);
    writer.startWriting();
    writer.startSession(MediaTime::zero());
    const MediaTime hostStart = *writer.sessionStartHostTimeValue();
    const int jitter[] = {0, 144, -96, 48, -144, 96};
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(appendWaiting(writer, tone(block, i * block, MediaTime::make(i * block, 48000)),
                                  false));
        if (i * block >= micFrom * 48000) {
            const MediaTime at = hostStart + MediaTime::make(i * block + jitter[i % 6], 48000);
            EXPECT_TRUE(appendWaiting(writer, level(0.25f, at), true));
        }
    }
    writer.finishWriting();
    auto decoded = decodeAudio(path);
    EXPECT_TRUE(decoded.has_value());
    return decoded ? *decoded : DecodedAudio{};
}

double mean(const std::vector<float>& samples, double from, double to) {
    double sum = 0;
    const size_t first = size_t(from * 48000), last = size_t(to * 48000);
    for (size_t i = first; i < last; ++i)
        sum += samples[i];
    return sum / double(last - first);
}

std::pair<float, float> range(const std::vector<float>& samples, double from, double to) {
    const auto [low, high] = std::minmax_element(samples.begin() + long(from * 48000),
                                                 samples.begin() + long(to * 48000));
    return {*low, *high};
}

} // namespace

// System audio and microphone on one input are summed sample for sample: the tone rides on the
// microphone's level everywhere both are heard, with no block lost, doubled or cut, although
// the microphone's stamps jitter.
TEST(AudioMix, BothSourcesOnOneInputAreSummed) {
    const DecodedAudio audio = recordBoth(0.0);
    ASSERT_EQ(audio.channels.size(), 2u);
    EXPECT_NEAR(audio.seconds(), 1.0, 0.01);
    for (int channel = 0; channel < 2; ++channel) {
        const auto& samples = audio.channels[size_t(channel)];
        EXPECT_NEAR(mean(samples, 0.05, 0.95), 0.25, 0.005);
        const auto [low, high] = range(samples, 0.05, 0.95);
        EXPECT_GT(low, -0.01f); // a missing microphone block would dip to -0.25
        EXPECT_LT(high, 0.51f); // a doubled one would reach 0.75
        EXPECT_NEAR(audio.toneFrequency(channel, 0.05, 0.95), 0.0, 1.0); // lifted: no crossings
    }
}

// A microphone that joins later is summed from where it begins; before, the tone is alone.
TEST(AudioMix, ALateSourceJoinsWhereItBegins) {
    const DecodedAudio audio = recordBoth(0.5);
    ASSERT_EQ(audio.channels.size(), 2u);
    EXPECT_NEAR(audio.seconds(), 1.0, 0.01);
    const auto& samples = audio.channels[0];
    EXPECT_NEAR(mean(samples, 0.05, 0.45), 0.0, 0.005);
    EXPECT_NEAR(audio.toneFrequency(0, 0.05, 0.45), 440.0, 1.0);
    EXPECT_NEAR(mean(samples, 0.55, 0.95), 0.25, 0.005);
    EXPECT_GT(range(samples, 0.55, 0.95).first, -0.01f);
}
