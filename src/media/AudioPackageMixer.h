#pragma once

#include "media/AudioPackageInfo.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

// What a mix-down is asked for. Volumes not given are the package's own.
struct AudioMixOptions {
    std::optional<float> sysVolume;
    std::optional<float> micVolume;
    bool normalize = false;       // to targetLoudness
    bool mp3 = false;             // falls back to m4a, with a note, when there is no MP3 encoder
    std::filesystem::path output; // empty: beside the package, its name with the format's extension
};

struct AudioMixResult {
    std::filesystem::path output;
    std::string format;              // "m4a" or "mp3"
    std::optional<std::string> note; // why an MP3 was asked for and an m4a made
    double seconds = 0;              // the mix's length: the longer source's
    double gain = 1;                 // the normalising gain applied after the volumes
};

// A package that cannot be mixed: missing, damaged "info.json", no source, unreadable source.
// The text names the file.
class AudioPackageError final : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

// Mixes the two sources of an audio package (".vxa": "info.json", "sys.*", "mic.*", either source
// may be missing) into one file: each source at its volume, summed sample by sample from both
// files' starts, clipped to full scale, optionally brought to -16 LUFS integrated loudness first
// (never above full scale). Reads the package while mixing, so hours of audio need little memory.
// Thread: any, one call at a time; mix() blocks for the whole mix-down.
class AudioPackageMixer final {
public:
    static constexpr double targetLoudness = -16.0; // LUFS
    static constexpr int sampleRate = 48000;
    static constexpr int channelCount = 2;

    // Reads "info.json" and finds the sources; throws AudioPackageError.
    explicit AudioPackageMixer(std::filesystem::path package);

    const AudioPackageInfo& info() const { return m_info; }
    const std::optional<std::filesystem::path>& systemAudioPath() const { return m_systemAudio; }
    const std::optional<std::filesystem::path>& microphonePath() const { return m_microphone; }

    // Throws AudioPackageError for an unreadable source and std::runtime_error when the output
    // cannot be written (the partial file is removed).
    AudioMixResult mix(const AudioMixOptions& options) const;

    // "<package without .vxa>.<extension>" beside the package.
    std::filesystem::path defaultOutputPath(const std::string& extension) const;

private:
    struct Sources;
    // Runs `each(left, right, count)` on every mixed, unclipped block; returns the samples mixed.
    template <typename Each>
    int64_t forEachMixedBlock(float sysVolume, float micVolume, Each&& each) const;
    double normalizingGain(float sysVolume, float micVolume) const;

    std::filesystem::path m_package;
    AudioPackageInfo m_info;
    std::optional<std::filesystem::path> m_systemAudio;
    std::optional<std::filesystem::path> m_microphone;
};
