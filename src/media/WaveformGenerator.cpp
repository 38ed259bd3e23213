#include "media/WaveformGenerator.h"

#include "core/support/Log.h"
#include "media/export/AudioTrackReader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {
// Mono at 44.1 kHz: what is read does not depend on the source's format.
constexpr int readRate = 44100;

// Float to 16 bits as libswresample converts: scaled by 2^15, rounded, clipped.
short toSample16(float value) {
    const long scaled = std::lrintf(value * 32768.0f);
    return short(std::clamp<long>(scaled, -32768, 32767));
}
} // namespace

int WaveformGenerator::targetCount(double duration) {
    const double wanted = duration * 50;
    if (!(wanted > 200))
        return 200;
    return wanted >= 2000 ? 2000 : std::max(200, int(wanted));
}

WaveformGenerator::Reduction::Reduction(int target, double duration)
    : m_target(target), m_sums(size_t(target), 0.0), m_counts(size_t(target), 0) {
    const double frames = readRate * duration;
    const long long total = std::max(1LL, std::isfinite(frames) ? (long long)frames : 1LL);
    m_perBucket = std::max(1LL, total / target);
}

void WaveformGenerator::Reduction::add(const short* samples, int count) {
    for (int i = 0; i < count; ++i) {
        const double value = std::abs(double(samples[i])) / 32767.0;
        const auto bucket = size_t(std::min<long long>(m_target - 1, m_index / m_perBucket));
        m_sums[bucket] += value;
        m_counts[bucket] += 1;
        ++m_index;
    }
}

std::vector<float> WaveformGenerator::Reduction::values() const {
    std::vector<float> values(size_t(m_target), 0.0f);
    float greatest = 0;
    for (size_t i = 0; i < values.size(); ++i) {
        if (m_counts[i] > 0) {
            values[i] = float(m_sums[i] / m_counts[i]);
            greatest = std::max(greatest, values[i]);
        }
    }
    if (greatest > 0) {
        const float scale = 1.0f / greatest;
        for (float& value : values)
            value *= scale;
    }
    return values;
}

std::vector<float> WaveformGenerator::generateWaveform(const std::filesystem::path& movie,
                                                       double duration) {
    const int target = targetCount(duration);
    std::string error;
    std::unique_ptr<AudioTrackReader> reader = AudioTrackReader::open(movie, {readRate, 1}, error);
    if (!reader) {
        if (!error.empty())
            logLine("Error generating waveform: {}", error);
        return std::vector<float>(size_t(target), 0.0f);
    }
    Reduction reduction(target, duration);
    std::vector<short> samples;
    while (true) {
        const AudioBuffer buffer = reader->nextBuffer();
        if (buffer.isNull())
            break;
        samples.resize(size_t(buffer.sampleCount()));
        const float* channel = buffer.channelData(0);
        for (int i = 0; i < buffer.sampleCount(); ++i)
            samples[size_t(i)] = toSample16(channel[i]);
        reduction.add(samples.data(), buffer.sampleCount());
    }
    return reduction.values();
}
