#pragma once

#include "core/model/RecordingOptions.h"

#include <QString>

#include <optional>

// How one movie file is written. A plain value built by the preparation and handed to a writer.
struct WriterEngineConfiguration {
    struct ColorSpaceSettings {
        QString transferFunction;
        QString colorPrimaries;
        QString yCbCrMatrix;
        bool operator==(const ColorSpaceSettings&) const = default;
    };

    struct VideoSettings {
        int width = 0;
        int height = 0;
        int frameRate = 60;
        VideoEncoder codec = VideoEncoder::h265;
        VideoQuality quality = VideoQuality::high;
        std::optional<ColorSpaceSettings> colorSpace;
        bool hasAlphaChannel = false;
        std::optional<QString> alphaCodec; // the alpha codec's raw value
        bool operator==(const VideoSettings&) const = default;
    };

    enum class AudioFormat { aac, alac, flac, opus };

    struct AudioSettings {
        int sampleRate = 48'000;
        int channelCount = 2;
        int bitRate = 128'000;
        AudioFormat format = AudioFormat::aac;
        bool operator==(const AudioSettings&) const = default;
    };

    QString outputURL; // a local file path
    OutputFormat outputFormat = OutputFormat::mov;
    std::optional<VideoSettings> videoSettings; // absent: an audio-only file
    AudioSettings audioSettings;
    bool separateAudioTracks = false;

    bool operator==(const WriterEngineConfiguration&) const = default;
};

// The ITU-R BT.709 triple every video file is tagged with.
inline WriterEngineConfiguration::ColorSpaceSettings rec709ColorSpace() {
    return {QStringLiteral("ITU_R_709_2"), QStringLiteral("ITU_R_709_2"),
            QStringLiteral("ITU_R_709_2")};
}
