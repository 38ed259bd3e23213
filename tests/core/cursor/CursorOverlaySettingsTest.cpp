#include "core/cursor/CursorOverlaySettings.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

// Out-of-range values from the editor's controls are pulled into range at construction.
TEST(CursorOverlaySettingsTest, InitialiserLimitsEveryRange) {
    const CursorOverlaySettings high(true, 5.0, 2.0, 9.0, 3.0, true, true, 4.0, 10.0,
                                     CursorAnimationSpeed::slow);
    EXPECT_EQ(high, CursorOverlaySettings(true, 3.0, 1.0, 2.0, 0.5, true, true, 1.0, 3.0,
                                          CursorAnimationSpeed::slow));
    const CursorOverlaySettings low(false, 0.0, -1.0, 0.0, 0.0, false, false, -1.0, 0.0,
                                    CursorAnimationSpeed::rapid);
    EXPECT_EQ(low, CursorOverlaySettings(false, 1.0, 0.0, 1.0, 0.05, false, false, 0.0, 0.1,
                                         CursorAnimationSpeed::rapid));
}

// Decoding keeps the file's values, limits or not, and the speed is written capitalised.
TEST(CursorOverlaySettingsTest, JsonRoundTripKeepsValuesOutsideTheLimits) {
    CursorOverlaySettings settings;
    settings.scale = 5.0;
    settings.motionBlurThreshold = 0.01;
    settings.animationSpeed = CursorAnimationSpeed::mellow;
    const nlohmann::json json = settings;
    EXPECT_EQ(json.at("animationSpeed"), "Mellow");
    EXPECT_EQ(json.get<CursorOverlaySettings>(), settings);
}

TEST(CursorOverlaySettingsTest, DecodingNeedsEveryKeyAndAKnownSpeed) {
    nlohmann::json json = CursorOverlaySettings::defaults();
    json.erase("clickDuration");
    EXPECT_THROW(json.get<CursorOverlaySettings>(), nlohmann::json::out_of_range);

    json = CursorOverlaySettings::defaults();
    json["animationSpeed"] = "quick"; // lower case is not the stored spelling
    try {
        (void)json.get<CursorOverlaySettings>();
        FAIL() << "a lower-case speed must not decode";
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what()).find("\"quick\""), std::string::npos) << error.what();
    }
}

} // namespace
