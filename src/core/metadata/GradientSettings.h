#pragma once

#include "core/metadata/CodableColor.h"
#include "core/metadata/GradientPreset.h"

#include <optional>
#include <vector>

// A linear gradient background: colours spread evenly along `angle` degrees.
struct GradientSettings {
    std::vector<CodableColor> colors{};
    double angle = 0.0;
    std::optional<GradientPreset> preset{};
    bool operator==(const GradientSettings&) const = default;
};

// The colours and angle of a preset, with `preset` set to it.
GradientSettings gradientSettings(GradientPreset preset);
