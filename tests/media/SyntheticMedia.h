#pragma once

#include "media/AudioBuffer.h"
#include "media/VideoFrame.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

// Generated pictures and tones that drive the writer without any capture hardware.

// A moving pattern: a bar that advances with the index over a gradient; alpha as given.
inline VideoFrame movingPicture(int width, int height, int index, MediaTime pts, MediaTime duration,
                                uint8_t alpha = 255) {
    VideoFrame frame = VideoFrame::allocate(width, height, pts, duration);
    for (int y = 0; y < height; ++y) {
        uint8_t* row = frame.mutableBytes() + size_t(y) * size_t(frame.bytesPerRow());
        for (int x = 0; x < width; ++x) {
            bool bar = (x + index * 4) % width < width / 8;
            row[x * 4 + 0] = uint8_t(bar ? 255 : x * 255 / width);
            row[x * 4 + 1] = uint8_t(y * 255 / height);
            row[x * 4 + 2] = uint8_t(bar ? 255 : (index * 8) & 0xff);
            row[x * 4 + 3] = alpha;
        }
    }
    return frame;
}

// A 440 Hz sine on every channel, continuing from sample `firstSample`.
inline AudioBuffer tone(int sampleCount, int64_t firstSample, MediaTime pts, int sampleRate = 48000,
                        int channels = 2) {
    AudioBuffer buffer = AudioBuffer::allocate(channels, sampleRate, sampleCount, pts);
    for (int channel = 0; channel < channels; ++channel) {
        float* samples = buffer.mutableChannelData(channel);
        for (int i = 0; i < sampleCount; ++i)
            samples[i] =
                0.25f * float(std::sin(2.0 * M_PI * 440.0 * double(firstSample + i) / sampleRate));
    }
    return buffer;
}

// A fresh folder under the system's temporary folder, removed with the object.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "tavelquiston-media-XXXXXX").string();
        m_path =
            ::mkdtemp(pattern.data()) ? std::filesystem::path(pattern) : std::filesystem::path();
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path file(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};
