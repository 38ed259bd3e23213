#pragma once

#include <filesystem>
#include <vector>

// Loudness values of a movie's first audio track for the editor's timeline: 50 a second for
// ordinary lengths (at least 200, at most 2000 values), each the mean absolute amplitude of
// its share of the samples, scaled so that the loudest value is 1. Never fails: a movie without
// audio, or one that cannot be read, gives zeros.
//
// Thread: any; blocking (the editor calls it from a task).
class WaveformGenerator final {
public:
    static std::vector<float> generateWaveform(const std::filesystem::path& movie, double duration);
    // The number of values for a length in seconds.
    static int targetCount(double duration);

    // The reduction itself, fed mono 16-bit samples as they stream: no array per buffer.
    class Reduction {
    public:
        Reduction(int target, double duration);
        void add(const short* samples, int count);
        std::vector<float> values() const;

    private:
        int m_target;
        long long m_perBucket;
        long long m_index = 0;
        std::vector<double> m_sums;
        std::vector<int> m_counts;
    };
};
