#pragma once

#include "core/model/WriterConfiguration.h"

#include <QString>

#include <string>

// The description an audio package carries in its "info.json": the container, the encoder and
// the two volumes the sources were recorded at.
struct AudioPackageInfo {
    std::string format;  // the files' extension: "m4a"
    std::string encoder; // "aac", "alac", "flac" or "opus"
    bool exportMP3 = false;
    float sysVol = 1.0f;
    float micVol = 1.0f;

    // Keys equal to the fields, sorted.
    std::string toJson() const;
    // Throws std::invalid_argument naming what is missing or wrong.
    static AudioPackageInfo fromJson(const std::string& text);
    bool operator==(const AudioPackageInfo&) const = default;
};

// The encoder name as configured, the file extension, and the settings the files are written in.
struct AudioFormatInfo {
    std::string encoder;
    std::string fileExtension;
    WriterConfiguration::AudioSettings settings;
};

// aac (the default, also for a name not known), alac, flac or opus: always in an MPEG-4 audio
// file, 48 kHz stereo; aac at 128 kbit/s, opus at 96 kbit/s.
AudioFormatInfo getAudioFormatInfo(const QString& encoder);
