#pragma once

#include <array>
#include <optional>
#include <string_view>

// How quickly the drawn cursor catches up with the recorded one. The raw strings are
// capitalised ("Quick"), unlike the other enumerations of the file formats, because files
// already written carry them that way.
enum class CursorAnimationSpeed { slow, mellow, quick, rapid };

inline constexpr std::array allCursorAnimationSpeeds{
    CursorAnimationSpeed::slow, CursorAnimationSpeed::mellow, CursorAnimationSpeed::quick,
    CursorAnimationSpeed::rapid};

std::string_view rawValue(CursorAnimationSpeed speed);
std::optional<CursorAnimationSpeed> cursorAnimationSpeedFromRawValue(std::string_view raw);

// Seconds in which the smoothed cursor covers half of its remaining distance.
double halfLife(CursorAnimationSpeed speed);
// Exponent for drawing code that eases the cursor's own animations; the path does not use it.
double easingStrength(CursorAnimationSpeed speed);
