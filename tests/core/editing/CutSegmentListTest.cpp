#include "core/editing/CutSegmentList.h"

#include <gtest/gtest.h>

namespace {

MediaTime at(double seconds) {
    return MediaTime::fromSeconds(seconds, 600);
}
MediaTimeRange range(double start, double end) {
    return {at(start), at(end) - at(start)};
}

// Cuts only ever divide a segment: the pieces stay contiguous and cover the video, and a cut
// at an end or on an existing cut changes nothing.
TEST(CutSegmentListTest, CutsDivideWithoutMovingOtherSegments) {
    CutSegmentList cuts;
    cuts.reset(at(10));
    EXPECT_FALSE(cuts.split(at(0)));
    EXPECT_FALSE(cuts.split(at(10)));
    EXPECT_EQ(cuts.split(at(4)), 2);
    EXPECT_FALSE(cuts.split(at(4)));
    EXPECT_EQ(cuts.split(at(7)), 3);
    const auto& segments = cuts.segments();
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].startTime, at(0));
    EXPECT_EQ(segments[0].endTime, segments[1].startTime);
    EXPECT_EQ(segments[1].endTime, segments[2].startTime);
    EXPECT_EQ(segments[2].endTime, at(10));
    EXPECT_EQ(segments[1].formattedTimeRange(), QStringLiteral("0:04 - 0:07"));
}

// A mark is the user's choice for one piece; cutting that piece again starts both halves kept.
TEST(CutSegmentListTest, MarksDecideTheActiveDuration) {
    CutSegmentList cuts;
    cuts.reset(at(10));
    cuts.split(at(4));
    const QUuid second = cuts.segments()[1].id;
    EXPECT_TRUE(cuts.toggleDeletion(second));
    EXPECT_FALSE(cuts.toggleDeletion(QUuid::createUuid()));
    EXPECT_DOUBLE_EQ(cuts.totalActiveDuration(), 4.0);
    cuts.split(at(6));
    EXPECT_DOUBLE_EQ(cuts.totalActiveDuration(), 10.0);
}

// The command line's kept ranges: overlapping and touching ones merge, the rest is marked.
TEST(CutSegmentListTest, KeepingRangesMergesThemAndMarksTheRest) {
    const CutSegmentList cuts =
        CutSegmentList::keeping({range(6, 8), range(1, 2), range(1.5, 3), range(3, 4)}, at(10));
    const std::vector<VideoSegment> active = cuts.activeSegments();
    ASSERT_EQ(active.size(), 2u);
    EXPECT_EQ(active[0].timeRange(), range(1, 4));
    EXPECT_EQ(active[1].timeRange(), range(6, 8));
    EXPECT_DOUBLE_EQ(cuts.totalActiveDuration(), 5.0);
    EXPECT_TRUE(CutSegmentList::keeping({}, at(10)).activeSegments().empty());
}

} // namespace
