#pragma once

#include "core/metadata/CodableColor.h"
#include "core/model/CursorStyle.h"

#include <optional>

class UserDefaults;

// The drawn highlight cursor as the person set it up in the settings.
struct CustomCursorSettings {
    CursorStyle style = CursorStyle::circle;
    double size = 24.0;
    bool scaleAnimation = true;
    bool rippleEffect = true;
    CodableColor rippleColor{0.0, 0.5, 1.0, 0.5};

    // Absent unless "enableCustomCursor" is on. An unknown style falls to the first one, a size
    // not above 0 to 24, and the ripple colour's alpha is always 0.5.
    static std::optional<CustomCursorSettings> fromDefaults(const UserDefaults& defaults);

    bool operator==(const CustomCursorSettings&) const = default;
};
