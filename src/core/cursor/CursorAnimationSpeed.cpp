#include "core/cursor/CursorAnimationSpeed.h"

std::string_view rawValue(CursorAnimationSpeed speed) {
    switch (speed) {
    case CursorAnimationSpeed::slow:
        return "Slow";
    case CursorAnimationSpeed::mellow:
        return "Mellow";
    case CursorAnimationSpeed::quick:
        return "Quick";
    case CursorAnimationSpeed::rapid:
        return "Rapid";
    }
    return "Quick";
}

std::optional<CursorAnimationSpeed> cursorAnimationSpeedFromRawValue(std::string_view raw) {
    for (CursorAnimationSpeed speed : allCursorAnimationSpeeds) {
        if (rawValue(speed) == raw) {
            return speed;
        }
    }
    return std::nullopt;
}

double halfLife(CursorAnimationSpeed speed) {
    switch (speed) {
    case CursorAnimationSpeed::slow:
        return 0.2;
    case CursorAnimationSpeed::mellow:
        return 0.12;
    case CursorAnimationSpeed::quick:
        return 0.06;
    case CursorAnimationSpeed::rapid:
        return 0.02;
    }
    return 0.06;
}

double easingStrength(CursorAnimationSpeed speed) {
    switch (speed) {
    case CursorAnimationSpeed::slow:
        return 3.0;
    case CursorAnimationSpeed::mellow:
        return 2.0;
    case CursorAnimationSpeed::quick:
        return 1.5;
    case CursorAnimationSpeed::rapid:
        return 1.0;
    }
    return 1.5;
}
