#pragma once

#include "core/geometry/Rect.h"

#include <QString>

#include <array>
#include <optional>

// The shape of an exported canvas. `original` keeps the recording's own size.
enum class OutputAspectRatio {
    original,
    ratio16x9,
    ratio1x1,
    ratio4x3,
    ratio9x16,
    ratio3x4,
    ratio4x5
};

inline constexpr std::array allOutputAspectRatios{
    OutputAspectRatio::original, OutputAspectRatio::ratio16x9, OutputAspectRatio::ratio1x1,
    OutputAspectRatio::ratio4x3, OutputAspectRatio::ratio9x16, OutputAspectRatio::ratio3x4,
    OutputAspectRatio::ratio4x5};

// "Original", "16:9", "1:1", "4:3", "9:16", "3:4", "4:5".
QString rawValue(OutputAspectRatio ratio);
inline QString displayName(OutputAspectRatio ratio) {
    return rawValue(ratio);
}
std::optional<OutputAspectRatio> outputAspectRatioFromRawValue(const QString& raw);
// Width over height; nothing for `original`.
std::optional<double> ratio(OutputAspectRatio ratio);
// The canvas for a source of `size`: the source kept, or extended to the ratio, never cropped
// and never shrunk. Not rounded.
Size outputSize(OutputAspectRatio ratio, Size size);
