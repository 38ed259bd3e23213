#pragma once

#include "core/cursor/CursorAnimationSpeed.h"

#include <nlohmann/json_fwd.hpp>

// How the editor and the export draw the recorded cursor. The constructor keeps every value in
// its range; decoding from JSON keeps what the file says, so that settings written by another
// version survive a round trip unchanged.
struct CursorOverlaySettings {
    bool enabled = true;
    double scale = 1.5;
    double smoothing = 0.5;
    double clickScale = 1.3;
    double clickDuration = 0.15;
    bool hideSystemCursor = false;
    bool motionBlurEnabled = true;
    double motionBlurIntensity = 0.25;
    double motionBlurThreshold = 0.49;
    CursorAnimationSpeed animationSpeed = CursorAnimationSpeed::quick;

    CursorOverlaySettings() = default;
    CursorOverlaySettings(bool enabled, double scale, double smoothing, double clickScale,
                          double clickDuration, bool hideSystemCursor, bool motionBlurEnabled,
                          double motionBlurIntensity, double motionBlurThreshold,
                          CursorAnimationSpeed animationSpeed);

    static CursorOverlaySettings defaults() { return {}; }

    bool operator==(const CursorOverlaySettings&) const = default;
};

// Every key is required; an unknown animation speed names the offending value.
void to_json(nlohmann::json& json, const CursorOverlaySettings& settings);
void from_json(const nlohmann::json& json, CursorOverlaySettings& settings);
