#pragma once

#include "core/editing/ZoomKeyframePreview.h"
#include "core/metadata/RecordingMetadata.h"
#include "core/zoom/ZoomCameraEngine.h"

#include <QUuid>

#include <optional>
#include <vector>

// The zoom part of an editing session: the user's gestures on the zoom track become
// `ZoomSegment` values here, and the preview asks here what the camera shows. The trimmer
// session holds one and exposes its operations; it has no window of its own, so every rule is
// testable headless.
//
// Every edit keeps the document's copy in step (`metadata().zoomSegments`) and drops the
// preview's snapshot and camera history, so that the next frame reflects the edit. An edit of
// an unknown id changes nothing.
//
// Main thread, like the session that owns it.
class ZoomSegmentEditor final {
public:
    // A snapshot of what the per-frame queries read: segments sorted by start, cursor samples.
    struct ZoomSegmentCache {
        std::vector<ZoomSegment> segments;
        std::vector<CursorPosition> globalPositions;
    };

    // Replaces the document (already migrated) and takes its segments and keyframes.
    void setMetadata(std::optional<RecordingMetadata> metadata);
    const std::optional<RecordingMetadata>& metadata() const { return m_metadata; }
    // The length of the video being edited; only a finite, positive value limits the edits.
    void setVideoDuration(std::optional<double> duration);
    std::optional<double> videoDuration() const { return m_videoDuration; }

    const std::vector<ZoomSegment>& zoomSegments() const { return m_zoomSegments; }
    const std::vector<ZoomKeyframe>& zoomKeyframes() const { return m_zoomKeyframes; }

    // A manual, cursor-following segment at `time`, focused where the cursor was then. It may
    // overlap others; the camera ranks overlapping segments by strength.
    void addZoomSegment(double time, double duration = ZoomSegment::defaultDuration,
                        double zoomLevel = 2.0);
    // Replaces the segment of the same id, limiting level, eases and length.
    void updateZoomSegment(const ZoomSegment& segment);
    void deleteZoomSegment(const QUuid& id);
    // Keeps the length; stops at the video's ends.
    void moveSegment(const QUuid& id, double time);
    // Never shorter than the minimum length; the other end stays put.
    void resizeSegmentStart(const QUuid& id, double time);
    void resizeSegmentEnd(const QUuid& id, double time);

    // The legacy keyframe track. Without a centre the cursor at that time is used.
    void addZoomKeyframe(double time, std::optional<Point> center, double level);
    void updateZoomKeyframe(const ZoomKeyframe& keyframe);
    void deleteZoomKeyframe(const QUuid& id);
    // The last cursor sample at or before `time` (else the first), clamped to the frame;
    // nothing without samples.
    std::optional<Point> inferCursorCenter(double time) const;

    // The camera for the preview: exact while scrubbing, sprung while playing.
    ZoomCameraFrame zoomCameraFrame(double time, Size renderSize, bool isPlaying);
    ZoomPreviewState segmentZoomStateCached(double time);
    // One question to a fresh camera, for callers without a session.
    static ZoomPreviewState segmentZoomState(double time, const std::vector<ZoomSegment>& segments,
                                             const std::vector<CursorPosition>& cursorPositions);

    const ZoomSegmentCache& buildZoomSegmentCacheIfNeeded();
    void invalidateZoomSegmentCache();
    bool hasZoomSegmentCache() const { return m_zoomSegmentCache.has_value(); }
    const ZoomCameraEngine& zoomCameraEngine() const { return m_zoomCameraEngine; }

private:
    ZoomSegment* findSegment(const QUuid& id);
    void sortSegments();
    void sortKeyframes();
    void syncMetadataZoomSegments();
    void syncMetadataZoomKeyframes();
    // The end of every segment edit.
    void segmentsChanged();

    std::optional<RecordingMetadata> m_metadata;
    std::optional<double> m_videoDuration;
    std::vector<ZoomSegment> m_zoomSegments;
    std::vector<ZoomKeyframe> m_zoomKeyframes;
    std::optional<ZoomSegmentCache> m_zoomSegmentCache;
    ZoomCameraEngine m_zoomCameraEngine;
};
