#include "core/model/OutputAspectRatio.h"

#include <gtest/gtest.h>

namespace {

TEST(OutputAspectRatioTest, CanvasExtendsTheSourceAndNeverShrinksIt) {
    const Size source{1920.0, 1080.0};
    EXPECT_EQ(outputSize(OutputAspectRatio::original, source), source);
    EXPECT_EQ(outputSize(OutputAspectRatio::ratio16x9, source), source);
    // Narrower ratios keep the width and grow the height: 1920 / 1, 1920 * 16 / 9.
    EXPECT_EQ(outputSize(OutputAspectRatio::ratio1x1, source), (Size{1920.0, 1920.0}));
    EXPECT_DOUBLE_EQ(outputSize(OutputAspectRatio::ratio9x16, source).height, 1920.0 * 16.0 / 9.0);
    // A portrait source widened to 4:3 keeps its height: 1080 * 4 / 3 = 1440.
    EXPECT_EQ(outputSize(OutputAspectRatio::ratio4x3, {1080.0, 1080.0}), (Size{1440.0, 1080.0}));
}

} // namespace
