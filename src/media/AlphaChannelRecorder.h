#pragma once

#include "core/model/AlphaVideoCodec.h"
#include "media/VideoCodecSettings.h"

#include <optional>
#include <string>
#include <vector>

// The rules for recording with transparency: which alpha codecs this machine's FFmpeg offers,
// which sizes they take, and the encoder settings the writer uses instead of its own.
// Stateless; thread-safe.
class AlphaChannelRecorder final {
public:
    AlphaChannelRecorder() = delete;

    static constexpr int maximumDimension = 8192;

    static bool isCodecSupported(AlphaVideoCodec codec);
    // True only when FFmpeg has an HEVC encoder that really keeps an alpha plane.
    static bool isHEVCWithAlphaSupported();
    // The name of that encoder, if there is one.
    static std::optional<std::string> hevcWithAlphaEncoderName();
    static std::vector<AlphaVideoCodec> supportedAlphaCodecs();
    static std::optional<AlphaVideoCodec> recommendedAlphaCodec();
    // Throws AlphaRecordingError.
    static void validateResolution(int width, int height, AlphaVideoCodec codec);
    // quality is a VideoQuality's raw value.
    static VideoCodecSettings videoSettings(int width, int height, AlphaVideoCodec codec,
                                            double quality);
};
