#include "core/editing/ZoomSegmentEditor.h"

#include <gtest/gtest.h>

namespace {

RecordingMetadata metadataWithCursor(std::initializer_list<std::pair<double, Point>> samples) {
    RecordingMetadata metadata;
    metadata.duration = 10.0;
    metadata.resolution = {1920.0, 1080.0};
    metadata.frameRate = 60;
    for (const auto& [t, p] : samples) {
        metadata.cursorPositions.push_back({QUuid::createUuid(), t, p});
    }
    return metadata;
}

ZoomSegmentEditor editorOf(double videoDuration) {
    ZoomSegmentEditor editor;
    editor.setMetadata(metadataWithCursor({}));
    editor.setVideoDuration(videoDuration);
    return editor;
}

TEST(ZoomSegmentEditorTest, AddedSegmentFocusesOnTheCursor) {
    ZoomSegmentEditor editor;
    editor.setMetadata(metadataWithCursor({{0.0, {0.2, 0.3}}, {4.0, {0.6, 0.7}}}));
    editor.setVideoDuration(10.0);
    editor.addZoomSegment(2.0);
    ASSERT_EQ(editor.zoomSegments().size(), 1u);
    const ZoomSegment& s = editor.zoomSegments().front();
    EXPECT_EQ(s.startTime, 2.0);
    EXPECT_EQ(s.endTime, 5.0);
    // The cursor half-way between its samples at 0 and 4.
    ASSERT_TRUE(s.focusPoint);
    EXPECT_NEAR(s.focusPoint->x, 0.4, 1e-12);
    EXPECT_NEAR(s.focusPoint->y, 0.5, 1e-12);
    // Segments stay sorted by start, overlap is allowed, and the document follows each edit.
    editor.addZoomSegment(1.0);
    EXPECT_EQ(editor.zoomSegments()[0].startTime, 1.0);
    EXPECT_EQ(editor.metadata()->zoomSegments, editor.zoomSegments());
}

TEST(ZoomSegmentEditorTest, AddingRespectsTheVideosEnds) {
    ZoomSegmentEditor before = editorOf(10.0);
    before.addZoomSegment(-1.0);
    EXPECT_EQ(before.zoomSegments()[0].startTime, 0.0);
    EXPECT_EQ(before.zoomSegments()[0].endTime, 3.0);
    ZoomSegmentEditor shortVideo = editorOf(2.0);
    shortVideo.addZoomSegment(-1.0);
    EXPECT_EQ(shortVideo.zoomSegments()[0].endTime, 2.0);
    // At 9.8 of 10 s only 0.2 s remain; the minimum length of 0.5 wins over the video's end.
    ZoomSegmentEditor atEnd = editorOf(10.0);
    atEnd.addZoomSegment(9.8);
    EXPECT_EQ(atEnd.zoomSegments()[0].startTime, 9.8);
    EXPECT_DOUBLE_EQ(atEnd.zoomSegments()[0].endTime, 10.3);
    // Without a known duration nothing limits the end; without metadata there is no focus.
    ZoomSegmentEditor unknown;
    unknown.setVideoDuration(std::numeric_limits<double>::infinity());
    unknown.addZoomSegment(100.0, 5.0, 7.0);
    EXPECT_EQ(unknown.zoomSegments()[0].endTime, 105.0);
    EXPECT_EQ(unknown.zoomSegments()[0].zoomLevel, 3.0);
    EXPECT_FALSE(unknown.zoomSegments()[0].focusPoint);
}

TEST(ZoomSegmentEditorTest, UpdateLimitsLevelEasesAndLength) {
    ZoomSegmentEditor editor = editorOf(10.0);
    editor.addZoomSegment(1.0);
    ZoomSegment changed = editor.zoomSegments()[0];
    changed.zoomLevel = 5.0;
    changed.easeIn = 0.0; // the initialiser would allow 0; an edit keeps at least 0.05
    changed.easeOut = 9.0;
    changed.endTime = changed.startTime + 0.2;
    changed.deadZone = 0.9; // not limited here
    editor.updateZoomSegment(changed);
    const ZoomSegment& s = editor.zoomSegments()[0];
    EXPECT_EQ(s.zoomLevel, 3.0);
    EXPECT_EQ(s.easeIn, 0.05);
    EXPECT_EQ(s.easeOut, 2.0);
    EXPECT_EQ(s.endTime, 1.5);
    EXPECT_EQ(s.deadZone, 0.9);
    changed.zoomLevel = 0.5;
    editor.updateZoomSegment(changed);
    EXPECT_EQ(editor.zoomSegments()[0].zoomLevel, 1.0);
}

TEST(ZoomSegmentEditorTest, MoveKeepsTheLength) {
    ZoomSegmentEditor editor = editorOf(10.0);
    editor.addZoomSegment(1.0); // 1 ... 4
    const QUuid id = editor.zoomSegments()[0].id;
    editor.moveSegment(id, 9.0); // would end at 12: pulled back to 7 ... 10
    EXPECT_EQ(editor.zoomSegments()[0].startTime, 7.0);
    EXPECT_EQ(editor.zoomSegments()[0].endTime, 10.0);
    editor.moveSegment(id, -2.0);
    EXPECT_EQ(editor.zoomSegments()[0].startTime, 0.0);
    EXPECT_EQ(editor.zoomSegments()[0].endTime, 3.0);
}

TEST(ZoomSegmentEditorTest, ResizingKeepsTheMinimumLength) {
    ZoomSegmentEditor editor = editorOf(10.0);
    editor.addZoomSegment(2.0); // 2 ... 5
    const QUuid id = editor.zoomSegments()[0].id;
    editor.resizeSegmentStart(id, 7.0); // beyond the end: 4.5 ... 5
    EXPECT_EQ(editor.zoomSegments()[0].startTime, 4.5);
    EXPECT_EQ(editor.zoomSegments()[0].endTime, 5.0);
    editor.resizeSegmentEnd(id, 12.0); // limited to the video
    EXPECT_EQ(editor.zoomSegments()[0].endTime, 10.0);
    editor.resizeSegmentEnd(id, 0.1); // raised to start + 0.5 = 4.5 + 0.5
    EXPECT_EQ(editor.zoomSegments()[0].endTime, 5.0);
}

// An edit of a segment that is not there changes nothing, not even the preview's cache.
TEST(ZoomSegmentEditorTest, UnknownIdIsANoOp) {
    ZoomSegmentEditor editor = editorOf(10.0);
    editor.addZoomSegment(2.0);
    const auto before = editor.zoomSegments();
    editor.buildZoomSegmentCacheIfNeeded();
    const QUuid stranger = QUuid::createUuid();
    ZoomSegment ghost = before[0];
    ghost.id = stranger;
    editor.updateZoomSegment(ghost);
    editor.moveSegment(stranger, 1.0);
    editor.resizeSegmentEnd(stranger, 1.0);
    editor.deleteZoomSegment(stranger);
    EXPECT_EQ(editor.zoomSegments(), before);
    EXPECT_TRUE(editor.hasZoomSegmentCache());
    editor.deleteZoomSegment(before[0].id);
    EXPECT_TRUE(editor.zoomSegments().empty());
    EXPECT_TRUE(editor.metadata()->zoomSegments.empty());
}

// After an edit the preview must not show the old segments nor carry old camera history.
TEST(ZoomSegmentEditorTest, EditsInvalidateTheCacheAndTheCamera) {
    ZoomSegmentEditor editor;
    editor.setMetadata(metadataWithCursor({{0.0, {0.9, 0.9}}, {9.0, {0.9, 0.9}}}));
    editor.setVideoDuration(10.0);
    editor.addZoomSegment(1.0);
    editor.zoomCameraFrame(2.0, {1920.0, 1080.0}, false);
    EXPECT_TRUE(editor.hasZoomSegmentCache());
    EXPECT_TRUE(editor.zoomCameraEngine().followState().initialized);
    editor.resizeSegmentEnd(editor.zoomSegments()[0].id, 6.0);
    EXPECT_FALSE(editor.hasZoomSegmentCache());
    EXPECT_EQ(editor.zoomCameraEngine().followState(), ZoomCameraEngine::FollowState{});
    // The rebuilt cache holds the new end and the document's cursor samples.
    const auto& cache = editor.buildZoomSegmentCacheIfNeeded();
    EXPECT_EQ(cache.segments[0].endTime, 6.0);
    EXPECT_EQ(cache.globalPositions.size(), 2u);
}

TEST(ZoomSegmentEditorTest, PreviewScrubsExactlyAndPlaysSprung) {
    ZoomSegmentEditor editor = editorOf(10.0);
    editor.addZoomSegment(2.0, 3.0, 2.0); // no cursor: focus in the middle
    const Size size{1920.0, 1080.0};
    // Scrubbing: each frame is what a fresh camera says, full zoom in the body.
    EXPECT_EQ(editor.zoomCameraFrame(3.0, size, false).scale, 2.0);
    EXPECT_EQ(editor.zoomCameraFrame(0.5, size, false).scale, 1.0);
    // Playing: the first frame lands on the target, the next is held back by the spring
    // (from 1 towards 2 over 80 ms at most: 1.187, see the camera's spring).
    EXPECT_EQ(editor.zoomCameraFrame(0.5, size, true).scale, 1.0);
    const double sprung = editor.zoomCameraFrame(3.0, size, true).scale;
    EXPECT_GT(sprung, 1.0);
    EXPECT_LT(sprung, 1.5);

    const auto cached = editor.segmentZoomStateCached(3.0);
    EXPECT_EQ(cached.scale, 2.0);
    EXPECT_EQ(cached.center, (Point{0.5, 0.5}));
    EXPECT_EQ(ZoomSegmentEditor::segmentZoomState(3.0, editor.zoomSegments(), {}), cached);
}

TEST(ZoomSegmentEditorTest, KeyframesInferTheirCentreFromTheCursor) {
    ZoomSegmentEditor editor;
    editor.setMetadata(metadataWithCursor({{1.0, {0.2, 0.3}}, {3.0, {1.4, -0.2}}}));
    // Before the first sample the first sample; later the last one at or before the time,
    // clamped to the frame.
    EXPECT_EQ(editor.inferCursorCenter(0.5), (Point{0.2, 0.3}));
    EXPECT_EQ(editor.inferCursorCenter(2.9), (Point{0.2, 0.3}));
    EXPECT_EQ(editor.inferCursorCenter(3.0), (Point{1.0, 0.0}));

    editor.addZoomKeyframe(5.0, std::nullopt, 2.0);
    editor.addZoomKeyframe(2.0, Point{0.7, 0.7}, 1.5);
    ASSERT_EQ(editor.zoomKeyframes().size(), 2u);
    EXPECT_EQ(editor.zoomKeyframes()[0].time, 2.0);
    EXPECT_EQ(editor.zoomKeyframes()[1].center, (Point{1.0, 0.0}));
    EXPECT_EQ(editor.metadata()->zoomKeyframes, editor.zoomKeyframes());

    ZoomSegmentEditor bare;
    EXPECT_FALSE(bare.inferCursorCenter(1.0));
    bare.addZoomKeyframe(1.0, std::nullopt, 2.0);
    EXPECT_EQ(bare.zoomKeyframes()[0].center, (Point{0.5, 0.5}));
}

} // namespace
