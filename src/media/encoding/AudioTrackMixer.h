#pragma once

#include "media/AudioBuffer.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

// Sums the float planar blocks of several sources that feed one audio track, sample-aligned on
// the file's time line (sample indices at the track's rate). Each source's blocks are kept
// continuous across small timestamp jitter, as a single source would be. Mixed audio is released
// once every source heard so far has reached it, or once it lies the hold time behind the newest
// sample, so a source that falls silent delays the track by the hold time at most.
// Thread: one (the writer's worker).
class AudioTrackMixer final {
public:
    struct Block {
        AudioBuffer buffer;
        int64_t start = 0; // sample index of its first sample
    };

    // `start`: the first sample index still to come; earlier samples are dropped.
    AudioTrackMixer(int channelCount, int sampleRate, int64_t start);

    // Only blocks in the track's own rate and channel count can be summed.
    bool accepts(const AudioBuffer& buffer) const;
    // A source already heard before the mixer was made, continuing at `next`.
    void follow(int source, int64_t next) { m_sources[source].next = next; }
    void add(int source, const AudioBuffer& buffer, int64_t start);
    // The next stretch ready to encode, contiguous with the one before; `everything` releases
    // what is held back too (at the end of the file).
    std::optional<Block> take(bool everything);

private:
    struct Source {
        int64_t next = 0; // where its next block continues
    };
    void release(int64_t end);

    const int m_channelCount;
    const int m_sampleRate;
    const int64_t m_tolerance;
    const int64_t m_hold;
    std::map<int, Source> m_sources;
    std::vector<std::vector<float>> m_window; // per channel, starting at m_windowStart
    int64_t m_windowStart;
    std::vector<Block> m_ready;
};
