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
