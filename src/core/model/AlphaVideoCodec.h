#pragma once

#include <array>
#include <optional>
#include <string>

// The codecs that can carry a picture's transparency into a movie file.
enum class AlphaVideoCodec { hevcWithAlpha, proRes4444, proRes4444XQ };
inline constexpr std::array allAlphaVideoCodecs{
    AlphaVideoCodec::hevcWithAlpha, AlphaVideoCodec::proRes4444, AlphaVideoCodec::proRes4444XQ};

std::string rawValue(AlphaVideoCodec codec);
std::string displayName(AlphaVideoCodec codec);
std::string fileExtension(AlphaVideoCodec codec);
std::optional<AlphaVideoCodec> alphaVideoCodecFromRawValue(const std::string& raw);
