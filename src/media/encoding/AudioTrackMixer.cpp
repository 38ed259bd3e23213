#include "media/encoding/AudioTrackMixer.h"

#include <algorithm>
#include <cmath>

namespace {
// The same jitter a single source is forgiven by the encoder.
constexpr double jitterToleranceSeconds = 0.02;
// Long enough for a sound server's two streams to catch up with each other, short enough that a
// file cut short loses little.
constexpr double holdSeconds = 0.5;
} // namespace

AudioTrackMixer::AudioTrackMixer(int channelCount, int sampleRate, int64_t start)
    : m_channelCount(channelCount), m_sampleRate(sampleRate),
      m_tolerance(std::llround(jitterToleranceSeconds * sampleRate)),
      m_hold(std::llround(holdSeconds * sampleRate)), m_window(size_t(channelCount)),
      m_windowStart(start) {}

bool AudioTrackMixer::accepts(const AudioBuffer& buffer) const {
    return !buffer.isNull() && buffer.sampleRate() == m_sampleRate &&
           buffer.channelCount() == m_channelCount;
}

void AudioTrackMixer::add(int source, const AudioBuffer& buffer, int64_t start) {
    const int64_t count = buffer.sampleCount();
    if (count <= 0)
        return;
    auto known = m_sources.find(source);
    if (known != m_sources.end() && std::llabs(start - known->second.next) <= m_tolerance)
        start = known->second.next;
    m_sources[source].next = start + count;

    const int64_t windowEnd = m_windowStart + int64_t(m_window[0].size());
    // A jump far past everything held: what is held goes out, and the track continues at the
    // jump (the encoder pads or skips the hole).
    if (start > windowEnd + m_hold) {
        release(windowEnd);
        m_windowStart = start;
    }
    const int64_t skip = std::max<int64_t>(0, m_windowStart - start);
    if (skip >= count)
        return; // entirely in audio already released
    const size_t offset = size_t(start + skip - m_windowStart);
    const size_t needed = offset + size_t(count - skip);
    for (int channel = 0; channel < m_channelCount; ++channel) {
        std::vector<float>& samples = m_window[size_t(channel)];
        if (samples.size() < needed)
            samples.resize(needed, 0.0f);
        const float* in = buffer.channelData(channel) + skip;
        for (size_t i = 0; i < size_t(count - skip); ++i)
            samples[offset + i] += in[i];
    }
}

std::optional<AudioTrackMixer::Block> AudioTrackMixer::take(bool everything) {
    const int64_t windowEnd = m_windowStart + int64_t(m_window[0].size());
    int64_t end = windowEnd;
    if (!everything) {
        for (const auto& [id, source] : m_sources)
            end = std::min(end, source.next);
        end = std::max(end, windowEnd - m_hold);
    }
    release(end);
    if (m_ready.empty())
        return std::nullopt;
    Block block = std::move(m_ready.front());
    m_ready.erase(m_ready.begin());
    return block;
}

void AudioTrackMixer::release(int64_t end) {
    const int64_t count = std::min<int64_t>(end - m_windowStart, int64_t(m_window[0].size()));
    if (count <= 0)
        return;
    AudioBuffer buffer = AudioBuffer::allocate(m_channelCount, m_sampleRate, int(count),
                                               MediaTime::make(m_windowStart, m_sampleRate));
    if (buffer.isNull())
        return;
    for (int channel = 0; channel < m_channelCount; ++channel) {
        std::vector<float>& samples = m_window[size_t(channel)];
        std::copy_n(samples.begin(), count, buffer.mutableChannelData(channel));
        samples.erase(samples.begin(), samples.begin() + count);
    }
    m_ready.push_back({std::move(buffer), m_windowStart});
    m_windowStart += count;
}
