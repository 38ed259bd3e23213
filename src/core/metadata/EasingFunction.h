#pragma once

#include <QString>

#include <array>
#include <optional>

// The curve of a zoom or camera move. Raw values are the case names.
enum class EasingFunction { linear, easeInOut, easeIn, easeOut };

inline constexpr std::array allEasingFunctions{EasingFunction::linear, EasingFunction::easeInOut,
                                               EasingFunction::easeIn, EasingFunction::easeOut};

QString rawValue(EasingFunction easing);
std::optional<EasingFunction> easingFunctionFromRawValue(const QString& raw);
