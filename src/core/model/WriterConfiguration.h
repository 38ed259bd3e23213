#pragma once

#include "core/model/AlphaVideoCodec.h"
#include "core/model/RecordingOptions.h"

#include <filesystem>
#include <optional>
#include <string>

// What one movie file should hold. Plain values with no media-library types, so that code which
// only describes a recording (the coordinator and its fakes) can build one.
struct WriterConfiguration {
    struct VideoSettings {
        // Colour tags as the names of the platform's colour constants, e.g. "ITU_R_709_2".
        struct ColorSpaceSettings {
            std::string transferFunction;
            std::string colorPrimaries;
            std::string yCbCrMatrix;
            bool operator==(const ColorSpaceSettings&) const = default;
            static ColorSpaceSettings rec709() {
                return {"ITU_R_709_2", "ITU_R_709_2", "ITU_R_709_2"};
            }
        };

        int width = 0;
        int height = 0;
        int frameRate = 60;
        VideoEncoder codec = VideoEncoder::h264;
        VideoQuality quality = VideoQuality::high;
        std::optional<ColorSpaceSettings> colorSpace;
        bool hasAlphaChannel = false;
        std::optional<AlphaVideoCodec> alphaCodec;
        bool operator==(const VideoSettings&) const = default;
    };

    enum class AudioFormat { aac, alac, flac, opus };

    struct AudioSettings {
        int sampleRate = 48000;
        int channelCount = 2;
        int bitRate = 128000;
        AudioFormat format = AudioFormat::aac;
        bool operator==(const AudioSettings&) const = default;
    };

    std::filesystem::path outputURL;
    OutputFormat outputFormat = OutputFormat::mov;
    std::optional<VideoSettings> videoSettings; // absent: an audio-only file
    AudioSettings audioSettings;
    bool separateAudioTracks = false;
    bool operator==(const WriterConfiguration&) const = default;
};

std::string rawValue(WriterConfiguration::AudioFormat format);
