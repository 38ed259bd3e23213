#include "core/metadata/ZoomMigration.h"

#include <gtest/gtest.h>

namespace {
ZoomKeyframe keyframe(double time, double level = 2.0) {
    return ZoomKeyframe{.time = time,
                        .center = {0.25, 0.75},
                        .level = level,
                        .easeIn = 0.6,
                        .easeOut = 1.2,
                        .easing = EasingFunction::easeOut};
}

ZoomEvent event(double t, Point bottomLeft, double duration = 1.0) {
    return ZoomEvent{.timestamp = t, .position = bottomLeft, .level = 2.5, .duration = duration};
}

RecordingMetadata document(double duration) {
    return RecordingMetadata{.duration = duration, .resolution = {1920, 1080}, .frameRate = 30};
}
} // namespace

// Each keyframe is centred with half of 3 s on each side. At 2 and 3: the first would be
// 0.5 ... 3.5 but stops where the next one starts (3 - 1.5 = 1.5); the second is 1.5 ... 4.5.
TEST(ZoomMigrationTest, KeyframesBecomeNonOverlappingManualSegments) {
    const auto segments = migrateKeyframesToSegments({keyframe(3, 1.5), keyframe(2)}, 10);
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments[0].startTime, 0.5);
    EXPECT_EQ(segments[0].endTime, 1.5);
    EXPECT_EQ(segments[0].zoomLevel, 2.0);
    EXPECT_EQ(segments[1].startTime, 1.5);
    EXPECT_EQ(segments[1].endTime, 4.5);
    EXPECT_EQ(segments[1].zoomLevel, 1.5);
    for (const ZoomSegment& s : segments) {
        EXPECT_EQ(s.mode, ZoomSegmentMode::manual);
        EXPECT_FALSE(s.followCursor);
        EXPECT_EQ(s.focusPoint, (Point{0.25, 0.75}));
        EXPECT_EQ(s.easeIn, 0.6);
        EXPECT_EQ(s.easeOut, 1.2);
        EXPECT_EQ(s.easing, EasingFunction::easeOut);
    }
    EXPECT_TRUE(migrateKeyframesToSegments({}, 10).empty());
}

// Two keyframes at 5: the first is cut to 3.5 ... 3.5 by the next one's start and yields
// nothing; the second, with nothing made before it, takes 3.5 ... 6.5.
TEST(ZoomMigrationTest, KeyframesAtTheSameTimeYieldOneSegment) {
    const auto segments = migrateKeyframesToSegments({keyframe(5, 1.2), keyframe(5, 2.4)}, 10);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0].startTime, 3.5);
    EXPECT_EQ(segments[0].endTime, 6.5);
    EXPECT_EQ(segments[0].zoomLevel, 2.4);
}

TEST(ZoomMigrationTest, KeyframeSegmentsStayInsideTheVideo) {
    // At 9.9 in a 10 s video: 8.4 ... 10.
    const auto late = migrateKeyframesToSegments({keyframe(9.9)}, 10);
    ASSERT_EQ(late.size(), 1u);
    EXPECT_DOUBLE_EQ(late[0].startTime, 8.4);
    EXPECT_EQ(late[0].endTime, 10);
    // Past the end: start 10.5, end 10; the minimum cannot be reached inside the video.
    EXPECT_TRUE(migrateKeyframesToSegments({keyframe(12)}, 10).empty());
    // Near the start: keyframes at 1 and 3.2 give 0 (clamped) ... 1.7, where the next one
    // starts, and 1.7 ... 4.7.
    const auto pushed = migrateKeyframesToSegments({keyframe(1), keyframe(3.2)}, 10);
    ASSERT_EQ(pushed.size(), 2u);
    EXPECT_EQ(pushed[0].startTime, 0);
    EXPECT_DOUBLE_EQ(pushed[0].endTime, 1.7);
    EXPECT_DOUBLE_EQ(pushed[1].startTime, 1.7);
}

// Events are mirrored to top-left and their eases limited to 1.5 s.
TEST(ZoomMigrationTest, EventsBecomeSegmentsWithMirroredFocus) {
    const auto segments =
        migrateEventsToSegments({event(4, {0.3, 0.9}, 2.0), event(8, {0.6, 0.25}, 0.4)}, 20);
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments[0].startTime, 2.5);
    EXPECT_EQ(segments[0].endTime, 5.5);
    EXPECT_NEAR(segments[0].focusPoint->y, 0.1, 1e-12);
    EXPECT_EQ(segments[0].easeIn, 1.5);
    EXPECT_EQ(segments[0].zoomLevel, 2.5);
    EXPECT_EQ(segments[1].focusPoint, (Point{0.6, 0.75}));
    EXPECT_EQ(segments[1].easeOut, 0.4);
}

// No segments, no keyframes, two live zoom events 6 s apart: the analysis makes one automatic
// segment per event (t - 0.55 ... t + 0.75), and keyframes are filled from the events.
TEST(ZoomMigrationTest, AnalysisComesFirstAndKeyframesAreFilledFromEvents) {
    RecordingMetadata m = document(10);
    m.zoomEvents = {event(2, {0.2, 0.8}), event(8, {0.7, 0.3})};
    const RecordingMetadata migrated = migrateZoomMetadata(m);
    ASSERT_EQ(migrated.zoomSegments.size(), 2u);
    EXPECT_EQ(migrated.zoomSegments[0].mode, ZoomSegmentMode::auto_);
    EXPECT_DOUBLE_EQ(migrated.zoomSegments[0].startTime, 1.45);
    EXPECT_DOUBLE_EQ(migrated.zoomSegments[0].endTime, 2.75);
    EXPECT_DOUBLE_EQ(migrated.zoomSegments[1].startTime, 7.45);
    EXPECT_NEAR(migrated.zoomSegments[1].focusPoint->y, 0.7, 1e-12);
    ASSERT_EQ(migrated.zoomKeyframes.size(), 2u);
    EXPECT_EQ(migrated.zoomKeyframes[0].time, 2);
    EXPECT_NEAR(migrated.zoomKeyframes[0].center.y, 0.2, 1e-12);
    EXPECT_EQ(migrated.zoomKeyframes[1].easeIn, 1.0);
    EXPECT_EQ(migrated.zoomKeyframes[1].easeOut, 1.0);
    EXPECT_EQ(migrated.zoomKeyframes[1].level, 2.5);
    // Everything else is left as it was.
    EXPECT_EQ(migrated.zoomEvents, m.zoomEvents);
    EXPECT_EQ(migrated.duration, 10);
}

TEST(ZoomMigrationTest, ExistingSegmentsAreKept) {
    RecordingMetadata m = document(10);
    m.zoomSegments = {ZoomSegment({.startTime = 1, .endTime = 2})};
    m.zoomEvents = {event(5, {0.5, 0.5})};
    m.cursorClicks = {CursorClick{.timestamp = 7, .position = {0.5, 0.5}}};
    const RecordingMetadata migrated = migrateZoomMetadata(m);
    EXPECT_EQ(migrated.zoomSegments, m.zoomSegments);
    EXPECT_EQ(migrated.zoomKeyframes.size(), 1u);
    // Existing keyframes are never replaced by events.
    m.zoomKeyframes = {keyframe(3)};
    EXPECT_EQ(migrateZoomMetadata(m).zoomKeyframes, m.zoomKeyframes);
}

// With nothing for the analysis to find, the old keyframes become the segments.
TEST(ZoomMigrationTest, KeyframesAreTheFallbackWhenAnalysisFindsNothing) {
    RecordingMetadata m = document(10);
    m.zoomKeyframes = {keyframe(5)};
    const RecordingMetadata migrated = migrateZoomMetadata(m);
    ASSERT_EQ(migrated.zoomSegments.size(), 1u);
    EXPECT_EQ(migrated.zoomSegments[0].mode, ZoomSegmentMode::manual);
    EXPECT_EQ(migrated.zoomSegments[0].startTime, 3.5);
    EXPECT_TRUE(migrateZoomMetadata(document(10)).zoomSegments.empty());
}
