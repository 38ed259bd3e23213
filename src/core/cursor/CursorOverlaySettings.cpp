#include "core/cursor/CursorOverlaySettings.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>
#include <string>

CursorOverlaySettings::CursorOverlaySettings(bool enabled, double scale, double smoothing,
                                             double clickScale, double clickDuration,
                                             bool hideSystemCursor, bool motionBlurEnabled,
                                             double motionBlurIntensity, double motionBlurThreshold,
                                             CursorAnimationSpeed animationSpeed)
    : enabled(enabled), scale(std::clamp(scale, 1.0, 3.0)),
      smoothing(std::clamp(smoothing, 0.0, 1.0)), clickScale(std::clamp(clickScale, 1.0, 2.0)),
      clickDuration(std::clamp(clickDuration, 0.05, 0.5)), hideSystemCursor(hideSystemCursor),
      motionBlurEnabled(motionBlurEnabled),
      motionBlurIntensity(std::clamp(motionBlurIntensity, 0.0, 1.0)),
      motionBlurThreshold(std::clamp(motionBlurThreshold, 0.1, 3.0)),
      animationSpeed(animationSpeed) {}

void to_json(nlohmann::json& json, const CursorOverlaySettings& settings) {
    json = nlohmann::json{
        {"enabled", settings.enabled},
        {"scale", settings.scale},
        {"smoothing", settings.smoothing},
        {"clickScale", settings.clickScale},
        {"clickDuration", settings.clickDuration},
        {"hideSystemCursor", settings.hideSystemCursor},
        {"motionBlurEnabled", settings.motionBlurEnabled},
        {"motionBlurIntensity", settings.motionBlurIntensity},
        {"motionBlurThreshold", settings.motionBlurThreshold},
        {"animationSpeed", std::string(rawValue(settings.animationSpeed))},
    };
}

void from_json(const nlohmann::json& json, CursorOverlaySettings& settings) {
    CursorOverlaySettings decoded;
    json.at("enabled").get_to(decoded.enabled);
    json.at("scale").get_to(decoded.scale);
    json.at("smoothing").get_to(decoded.smoothing);
    json.at("clickScale").get_to(decoded.clickScale);
    json.at("clickDuration").get_to(decoded.clickDuration);
    json.at("hideSystemCursor").get_to(decoded.hideSystemCursor);
    json.at("motionBlurEnabled").get_to(decoded.motionBlurEnabled);
    json.at("motionBlurIntensity").get_to(decoded.motionBlurIntensity);
    json.at("motionBlurThreshold").get_to(decoded.motionBlurThreshold);
    const auto raw = json.at("animationSpeed").get<std::string>();
    const auto speed = cursorAnimationSpeedFromRawValue(raw);
    if (!speed) {
        throw std::invalid_argument(fmt::format("unknown cursor animation speed \"{}\"", raw));
    }
    decoded.animationSpeed = *speed;
    settings = decoded;
}
