#pragma once

#include "media/AudioPackageMixer.h"

#include <filesystem>
#include <memory>
#include <mutex>

class AudioSourceStream;

// Plays an audio package: both sources in step, each at its own volume, mixed into interleaved
// 48 kHz stereo for an audio output, with a position that can be moved and the level each source
// had in the last block. Volumes start as the package's "sysVol"/"micVol" and are saved back to
// its "info.json" when changed, so the next opening (and the mix-down) hears the same.
//
// Thread-safe: read() runs on the audio output's thread while the interface thread seeks and
// sets volumes; one mutex guards the streams and the position.
class AudioPackagePlayback final {
public:
    // Throws AudioPackageError naming the file.
    explicit AudioPackagePlayback(std::filesystem::path package);
    ~AudioPackagePlayback();

    const std::filesystem::path& package() const { return m_package; }
    bool hasSystemAudio() const;
    bool hasMicrophone() const;
    double duration() const { return m_duration; }

    float sysVolume() const;
    float micVolume() const;
    // Applied from the next block on and written to "info.json"; false when that cannot be
    // written (the volume still applies).
    bool setSysVolume(float volume);
    bool setMicVolume(float volume);

    double position() const;
    void seek(double seconds);
    // Fills up to `frames` interleaved stereo frames; how many, 0 at the end.
    int read(float* interleaved, int frames);

    struct Levels {
        float system = 0; // peak magnitude of the last block, after the volume
        float microphone = 0;
    };
    Levels levels() const;

    // The mix-down with the current volumes; see AudioPackageMixer::mix.
    AudioMixResult exportMix(AudioMixOptions options) const;

private:
    bool saveInfo();

    const std::filesystem::path m_package;
    mutable std::mutex m_mutex;
    AudioPackageMixer m_mixer; // the package's description and sources
    AudioPackageInfo m_info;
    std::unique_ptr<AudioSourceStream> m_system;
    std::unique_ptr<AudioSourceStream> m_microphone;
    double m_duration = 0;
    int64_t m_position = 0; // in samples
    Levels m_levels;
};
