#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>

class AudioTrackReader;
class AudioBuffer;

// One source file of an audio package decoded at 48 kHz stereo and handed out in blocks of any
// length from any sample on: what the mix-down and the player read. Throws AudioPackageError
// (naming the file) when the file cannot be read.
// Thread: one at a time.
class AudioSourceStream final {
public:
    static constexpr int sampleRate = 48000;
    static constexpr int channelCount = 2;

    explicit AudioSourceStream(std::filesystem::path path);
    ~AudioSourceStream();
    AudioSourceStream(const AudioSourceStream&) = delete;
    AudioSourceStream& operator=(const AudioSourceStream&) = delete;

    // Adds up to `count` samples times `volume` into `mix`; how many the source had before its
    // end. `peak`, when given, becomes the largest magnitude added.
    int addInto(std::array<float*, 2> mix, int count, float volume, float* peak = nullptr);
    // The next addInto starts at this sample of the file.
    void seek(int64_t sample);
    // The file's length in seconds, from its container; 0 when unknown.
    static double durationSeconds(const std::filesystem::path& path);

private:
    bool refill();

    std::filesystem::path m_path;
    std::unique_ptr<AudioTrackReader> m_reader;
    std::unique_ptr<AudioBuffer> m_block;
    int m_offset = 0;
    int64_t m_skipTo = 0; // samples before this one are dropped after a seek
    bool m_ended = false;
};
