#include "core/support/Formatters.h"

#include <gtest/gtest.h>

#include <QDir>

TEST(FormattersTest, filenameDate) {
    const QDateTime date(QDate(2026, 3, 7), QTime(9, 5, 3));
    EXPECT_EQ(formattedForFilename(date), "2026-03-07 09.05.03");
}

// Minutes absorb hours; seconds round to the nearest; nonsense shows as zero.
TEST(FormattersTest, durationIsPositionalMinutesAndSeconds) {
    EXPECT_EQ(formattedDuration(0), "00:00");
    EXPECT_EQ(formattedDuration(5), "00:05");
    EXPECT_EQ(formattedDuration(59.6), "01:00");
    EXPECT_EQ(formattedDuration(3725), "62:05");
    EXPECT_EQ(formattedDuration(-3), "00:00");
    EXPECT_EQ(formattedDuration(std::numeric_limits<double>::quiet_NaN()), "00:00");
    EXPECT_EQ(formattedDuration(std::numeric_limits<double>::infinity()), "00:00");
}

TEST(FormattersTest, diskSpaceOfRealAndMissingPaths) {
    const auto space = availableDiskSpace(QDir::tempPath());
    ASSERT_TRUE(space.has_value());
    EXPECT_GT(*space, 0);
    EXPECT_EQ(availableDiskSpace("/no/such/folder/anywhere"), std::nullopt);
}
