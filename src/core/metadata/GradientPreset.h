#pragma once

#include <QString>

#include <array>
#include <optional>

// The named background gradients. Raw values are the case names; `gradientSettings(preset)`
// (GradientSettings.h) gives each one's colours and angle.
enum class GradientPreset { sunset, ocean, forest, purple, midnight, aurora, custom };

inline constexpr std::array allGradientPresets{GradientPreset::sunset,   GradientPreset::ocean,
                                               GradientPreset::forest,   GradientPreset::purple,
                                               GradientPreset::midnight, GradientPreset::aurora,
                                               GradientPreset::custom};

QString rawValue(GradientPreset preset);
QString displayName(GradientPreset preset);
std::optional<GradientPreset> gradientPresetFromRawValue(const QString& raw);
