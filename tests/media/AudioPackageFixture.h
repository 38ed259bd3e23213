#pragma once

#include "media/AudioFileEncoder.h"
#include "media/AudioPackageInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

// Audio packages made of known tones, and the level of one tone in what comes back.

// `seconds` of sample(t) on both channels, written as AAC the way the recorder writes a source.
inline void writeSource(const std::filesystem::path& path, double seconds,
                        const std::function<float(double t)>& sample) {
    std::string error;
    auto encoder = AudioFileEncoder::create(path, AudioFileEncoder::Codec::aac, 48000, 2, error);
    ASSERT_TRUE(encoder) << error;
    const int total = int(seconds * 48000);
    std::vector<float> samples(static_cast<size_t>(total));
    for (int i = 0; i < total; ++i)
        samples[size_t(i)] = sample(double(i) / 48000);
    const float* planes[] = {samples.data(), samples.data()};
    ASSERT_TRUE(encoder->write(planes, total)) << encoder->error();
    ASSERT_TRUE(encoder->finish()) << encoder->error();
}

inline void writeTone(const std::filesystem::path& path, double frequency, float amplitude,
                      double seconds) {
    writeSource(path, seconds,
                [=](double t) { return amplitude * float(std::sin(2.0 * M_PI * frequency * t)); });
}

inline void writeInfo(const std::filesystem::path& package, float sysVol, float micVol) {
    AudioPackageInfo info{"m4a", "aac", false, sysVol, micVol};
    std::ofstream(package / "info.json") << info.toJson();
}

// The amplitude of one frequency in samples [first, last) of a channel, by correlating with a
// sine and a cosine: other tones over whole periods do not leak into it.
inline double toneAmplitude(const std::vector<float>& samples, double frequency, int sampleRate,
                            size_t first, size_t last) {
    last = std::min(last, samples.size());
    double inPhase = 0, quadrature = 0;
    for (size_t i = first; i < last; ++i) {
        const double phase = 2.0 * M_PI * frequency * double(i) / sampleRate;
        inPhase += samples[i] * std::sin(phase);
        quadrature += samples[i] * std::cos(phase);
    }
    return last > first ? 2.0 * std::hypot(inPhase, quadrature) / double(last - first) : 0;
}

inline double decibels(double ratio) {
    return 20.0 * std::log10(ratio);
}
