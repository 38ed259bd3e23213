#include "core/editing/ZoomSegmentEditor.h"

#include "core/support/Log.h"

#include <algorithm>
#include <cmath>

namespace {

// The smallest ease an edited segment keeps, so that a zoom never snaps in within one frame.
constexpr double minimumEditedEase = 0.05;
constexpr double maximumEase = 2.0;
constexpr double editorEase = 0.8;
// What the editor's preview computes a one-off state for; only the ratio of focus and size
// matters, so any square does.
constexpr Size questionRenderSize{1000.0, 1000.0};

} // namespace

void ZoomSegmentEditor::setMetadata(std::optional<RecordingMetadata> metadata) {
    m_metadata = std::move(metadata);
    m_zoomSegments = m_metadata ? m_metadata->zoomSegments : std::vector<ZoomSegment>{};
    m_zoomKeyframes = m_metadata ? m_metadata->zoomKeyframes : std::vector<ZoomKeyframe>{};
    sortSegments();
    sortKeyframes();
    invalidateZoomSegmentCache();
}

void ZoomSegmentEditor::setVideoDuration(std::optional<double> duration) {
    m_videoDuration =
        duration && std::isfinite(*duration) && *duration > 0.0 ? duration : std::nullopt;
}

void ZoomSegmentEditor::addZoomSegment(double time, double duration, double zoomLevel) {
    const double start = std::max(0.0, time);
    double end = start + duration;
    if (m_videoDuration) {
        end = std::min(end, *m_videoDuration);
    }
    // The minimum length wins over the video's end: a segment added at the very end still has
    // room to be seen and dragged.
    if (end - start < ZoomSegment::minimumDuration) {
        end = start + ZoomSegment::minimumDuration;
    }

    ZoomSegment::Parameters p;
    p.startTime = start;
    p.endTime = end;
    p.zoomLevel = zoomLevel;
    p.easeIn = editorEase;
    p.easeOut = editorEase;
    p.easing = EasingFunction::easeInOut;
    p.panSmoothing = ZoomSegment::defaultPanSmoothing;
    p.deadZone = ZoomSegment::defaultDeadZone;
    p.mode = ZoomSegmentMode::manual;
    if (m_metadata) {
        p.focusPoint = ZoomCameraEngine::cursorPosition(start, m_metadata->cursorPositions);
    }
    p.followCursor = true;
    const ZoomSegment segment(p);

    m_zoomSegments.push_back(segment);
    segmentsChanged();
    logLine("🔍 Added zoom segment: {:.2f}s - {:.2f}s @ {}x", segment.startTime, segment.endTime,
            formatDouble(segment.zoomLevel));
}

void ZoomSegmentEditor::updateZoomSegment(const ZoomSegment& segment) {
    ZoomSegment* existing = findSegment(segment.id);
    if (!existing) {
        return;
    }
    ZoomSegment limited = segment;
    limited.zoomLevel = std::clamp(limited.zoomLevel, 1.0, 3.0);
    limited.easeIn = std::clamp(limited.easeIn, minimumEditedEase, maximumEase);
    limited.easeOut = std::clamp(limited.easeOut, minimumEditedEase, maximumEase);
    if (limited.endTime - limited.startTime < ZoomSegment::minimumDuration) {
        limited.endTime = limited.startTime + ZoomSegment::minimumDuration;
    }
    *existing = std::move(limited);
    segmentsChanged();
}

void ZoomSegmentEditor::deleteZoomSegment(const QUuid& id) {
    const auto removed =
        std::erase_if(m_zoomSegments, [&](const ZoomSegment& s) { return s.id == id; });
    if (removed > 0) {
        segmentsChanged();
    }
}

void ZoomSegmentEditor::moveSegment(const QUuid& id, double time) {
    ZoomSegment* segment = findSegment(id);
    if (!segment) {
        return;
    }
    const double length = segment->endTime - segment->startTime;
    double start = std::max(0.0, time);
    double end = start + length;
    if (m_videoDuration && end > *m_videoDuration) {
        end = *m_videoDuration;
        start = std::max(0.0, *m_videoDuration - length);
    }
    segment->startTime = start;
    segment->endTime = end;
    segmentsChanged();
}

void ZoomSegmentEditor::resizeSegmentStart(const QUuid& id, double time) {
    ZoomSegment* segment = findSegment(id);
    if (!segment) {
        return;
    }
    segment->startTime =
        std::min(std::max(0.0, time), segment->endTime - ZoomSegment::minimumDuration);
    segmentsChanged();
}

void ZoomSegmentEditor::resizeSegmentEnd(const QUuid& id, double time) {
    ZoomSegment* segment = findSegment(id);
    if (!segment) {
        return;
    }
    double end = time;
    if (m_videoDuration) {
        end = std::min(end, *m_videoDuration);
    }
    segment->endTime = std::max(end, segment->startTime + ZoomSegment::minimumDuration);
    segmentsChanged();
}

void ZoomSegmentEditor::addZoomKeyframe(double time, std::optional<Point> center, double level) {
    ZoomKeyframe keyframe;
    keyframe.time = time;
    keyframe.center = center ? *center : inferCursorCenter(time).value_or(Point{0.5, 0.5});
    keyframe.level = level;
    m_zoomKeyframes.push_back(keyframe);
    sortKeyframes();
    syncMetadataZoomKeyframes();
}

void ZoomSegmentEditor::updateZoomKeyframe(const ZoomKeyframe& keyframe) {
    auto existing = std::find_if(m_zoomKeyframes.begin(), m_zoomKeyframes.end(),
                                 [&](const ZoomKeyframe& k) { return k.id == keyframe.id; });
    if (existing == m_zoomKeyframes.end()) {
        return;
    }
    *existing = keyframe;
    sortKeyframes();
    syncMetadataZoomKeyframes();
}

void ZoomSegmentEditor::deleteZoomKeyframe(const QUuid& id) {
    if (std::erase_if(m_zoomKeyframes, [&](const ZoomKeyframe& k) { return k.id == id; }) > 0) {
        syncMetadataZoomKeyframes();
    }
}

std::optional<Point> ZoomSegmentEditor::inferCursorCenter(double time) const {
    if (!m_metadata || m_metadata->cursorPositions.empty()) {
        return std::nullopt;
    }
    const auto& positions = m_metadata->cursorPositions;
    const auto after =
        std::upper_bound(positions.begin(), positions.end(), time,
                         [](double t, const CursorPosition& p) { return t < p.timestamp; });
    const Point p = after == positions.begin() ? positions.front().position : (after - 1)->position;
    return Point{std::clamp(p.x, 0.0, 1.0), std::clamp(p.y, 0.0, 1.0)};
}

ZoomCameraFrame ZoomSegmentEditor::zoomCameraFrame(double time, Size renderSize, bool isPlaying) {
    ZoomCameraOptions options = ZoomCameraOptions::preview();
    options.useSpringSmoothing = isPlaying;
    const ZoomSegmentCache& cache = buildZoomSegmentCacheIfNeeded();
    return m_zoomCameraEngine.evaluate(time, cache.segments, cache.globalPositions, renderSize,
                                       options);
}

ZoomPreviewState ZoomSegmentEditor::segmentZoomStateCached(double time) {
    const ZoomSegmentCache& cache = buildZoomSegmentCacheIfNeeded();
    const ZoomCameraFrame frame =
        m_zoomCameraEngine.evaluate(time, cache.segments, cache.globalPositions, questionRenderSize,
                                    ZoomCameraOptions::preview());
    return {frame.scale, frame.center};
}

ZoomPreviewState
ZoomSegmentEditor::segmentZoomState(double time, const std::vector<ZoomSegment>& segments,
                                    const std::vector<CursorPosition>& cursorPositions) {
    ZoomCameraEngine engine;
    const ZoomCameraFrame frame = engine.evaluate(time, segments, cursorPositions,
                                                  questionRenderSize, ZoomCameraOptions::preview());
    return {frame.scale, frame.center};
}

const ZoomSegmentEditor::ZoomSegmentCache& ZoomSegmentEditor::buildZoomSegmentCacheIfNeeded() {
    if (!m_zoomSegmentCache) {
        ZoomSegmentCache cache;
        cache.segments = m_zoomSegments;
        std::stable_sort(
            cache.segments.begin(), cache.segments.end(),
            [](const ZoomSegment& a, const ZoomSegment& b) { return a.startTime < b.startTime; });
        if (m_metadata) {
            cache.globalPositions = m_metadata->cursorPositions;
        }
        m_zoomSegmentCache = std::move(cache);
    }
    return *m_zoomSegmentCache;
}

void ZoomSegmentEditor::invalidateZoomSegmentCache() {
    m_zoomSegmentCache.reset();
    m_zoomCameraEngine.reset();
}

ZoomSegment* ZoomSegmentEditor::findSegment(const QUuid& id) {
    auto it = std::find_if(m_zoomSegments.begin(), m_zoomSegments.end(),
                           [&](const ZoomSegment& s) { return s.id == id; });
    return it == m_zoomSegments.end() ? nullptr : &*it;
}

void ZoomSegmentEditor::sortSegments() {
    std::stable_sort(
        m_zoomSegments.begin(), m_zoomSegments.end(),
        [](const ZoomSegment& a, const ZoomSegment& b) { return a.startTime < b.startTime; });
}

void ZoomSegmentEditor::sortKeyframes() {
    std::stable_sort(m_zoomKeyframes.begin(), m_zoomKeyframes.end(),
                     [](const ZoomKeyframe& a, const ZoomKeyframe& b) { return a.time < b.time; });
}

void ZoomSegmentEditor::syncMetadataZoomSegments() {
    if (m_metadata) {
        m_metadata->zoomSegments = m_zoomSegments;
    }
}

void ZoomSegmentEditor::syncMetadataZoomKeyframes() {
    if (m_metadata) {
        m_metadata->zoomKeyframes = m_zoomKeyframes;
    }
}

void ZoomSegmentEditor::segmentsChanged() {
    sortSegments();
    syncMetadataZoomSegments();
    invalidateZoomSegmentCache();
}
