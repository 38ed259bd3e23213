#include "core/model/RecordingOptions.h"
#include "core/model/CursorStyle.h"

#include <gtest/gtest.h>

// Raw values are what settings store; a raw value of no case gives nothing.
TEST(RecordingOptionsTest, rawValuesRoundTripAndUnknownsAreAbsent) {
    for (auto mode : allResolutionModes)
        EXPECT_EQ(resolutionModeFromRawValue(rawValue(mode)), mode);
    for (auto quality : allVideoQualities)
        EXPECT_EQ(videoQualityFromRawValue(rawValue(quality)), quality);
    for (auto type : allBackgroundTypes)
        EXPECT_EQ(backgroundTypeFromRawValue(rawValue(type)), type);
    EXPECT_EQ(resolutionModeFromRawValue(7), std::nullopt);
    EXPECT_EQ(videoQualityFromRawValue(0.71), std::nullopt);
    EXPECT_EQ(videoEncoderFromRawValue("hevc"), std::nullopt);
    EXPECT_EQ(outputFormatFromRawValue("MOV"), std::nullopt);
    EXPECT_EQ(cursorStyleFromRawValue("Circle"), std::nullopt);
    EXPECT_EQ(backgroundTypeFromRawValue("purple"), std::nullopt);
}

TEST(RecordingOptionsTest, namesAndMultipliers) {
    EXPECT_EQ(displayName(ResolutionMode::low), "Low (0.5x)");
    EXPECT_EQ(displayName(ResolutionMode::high), "High (Native)");
    EXPECT_EQ(multiplier(ResolutionMode::low), 0.5);
    EXPECT_EQ(multiplier(ResolutionMode::normal), 1.0);
    EXPECT_EQ(multiplier(ResolutionMode::high), 2.0);
    EXPECT_EQ(rawValue(VideoQuality::medium), 0.7);
    EXPECT_EQ(displayName(VideoEncoder::h265), "H.265 (HEVC)");
    EXPECT_EQ(displayName(OutputFormat::mp4), "MP4");
    EXPECT_EQ(rawValue(BackgroundType::custom), "custom");
    EXPECT_EQ(displayName(CursorStyle::pointer), "Pointer");
    EXPECT_EQ(allBackgroundTypes.front(), BackgroundType::wallpaper);
}
