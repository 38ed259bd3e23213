#pragma once

#include "core/model/WriterConfiguration.h"

#include <cstdint>
#include <optional>

// The encoder settings of a movie's video track, as the writer's two branches build them: the
// ordinary H.264/H.265 path from the bitrate formula, and the transparency path from the alpha
// rules. A plain value.
struct VideoCodecSettings {
    enum class Codec { h264, hevc, hevcWithAlpha, proRes4444, proRes4444XQ };

    Codec codec = Codec::h264;
    int width = 0;
    int height = 0;
    std::optional<int64_t> averageBitRate;      // absent: the codec's own quality scale (ProRes)
    std::optional<int> expectedSourceFrameRate; // what the capture promises; timing stays per frame
    bool allowFrameReordering = true;
    std::optional<WriterConfiguration::VideoSettings::ColorSpaceSettings> colorProperties;

    bool hasAlpha() const {
        return codec == Codec::hevcWithAlpha || codec == Codec::proRes4444 ||
               codec == Codec::proRes4444XQ;
    }
    bool operator==(const VideoCodecSettings&) const = default;
};
