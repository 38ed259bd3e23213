#include "core/metadata/ZoomMigration.h"

#include "core/analysis/AttentionAnalyzer.h"

#include <algorithm>

namespace {

// What a keyframe or an event contributes to its segment, besides its place in time.
struct Anchor {
    double time;
    Point center; // top-left
    double level;
    double easeIn;
    double easeOut;
    EasingFunction easing;
};

std::vector<ZoomSegment> anchorsToSegments(std::vector<Anchor> anchors, double videoDuration) {
    std::vector<ZoomSegment> segments;
    std::stable_sort(anchors.begin(), anchors.end(),
                     [](const Anchor& a, const Anchor& b) { return a.time < b.time; });
    const double half = ZoomSegment::defaultDuration / 2;
    for (std::size_t i = 0; i < anchors.size(); ++i) {
        const Anchor& anchor = anchors[i];
        double start = std::max(0.0, anchor.time - half);
        double end = std::min(videoDuration, anchor.time + half);
        if (end - start < ZoomSegment::minimumDuration)
            end = std::min(videoDuration, start + ZoomSegment::minimumDuration);
        if (!segments.empty() && start < segments.back().endTime) {
            start = segments.back().endTime;
            end = std::max(end, start + ZoomSegment::minimumDuration);
        }
        if (i + 1 < anchors.size()) {
            const double limit = std::max(0.0, anchors[i + 1].time - half);
            if (limit < end)
                end = limit;
        }
        if (end - start >= ZoomSegment::minimumDuration) {
            segments.emplace_back(ZoomSegment::Parameters{.startTime = start,
                                                          .endTime = end,
                                                          .zoomLevel = anchor.level,
                                                          .easeIn = anchor.easeIn,
                                                          .easeOut = anchor.easeOut,
                                                          .easing = anchor.easing,
                                                          .mode = ZoomSegmentMode::manual,
                                                          .focusPoint = anchor.center,
                                                          .followCursor = false});
        }
    }
    return segments;
}

} // namespace

RecordingMetadata migrateZoomMetadata(RecordingMetadata metadata) {
    if (metadata.zoomSegments.empty()) {
        metadata.zoomSegments =
            generateAutoZoomSegments(metadata.zoomEvents, metadata.cursorClicks,
                                     metadata.cursorPositions, metadata.duration);
    }
    if (metadata.zoomKeyframes.empty() && !metadata.zoomEvents.empty()) {
        for (const ZoomEvent& event : metadata.zoomEvents) {
            metadata.zoomKeyframes.push_back(
                ZoomKeyframe{.time = event.timestamp,
                             .center = {event.position.x, 1.0 - event.position.y},
                             .level = event.level,
                             .easeIn = event.duration,
                             .easeOut = event.duration,
                             .easing = event.easing});
        }
    }
    if (metadata.zoomSegments.empty() && !metadata.zoomKeyframes.empty())
        metadata.zoomSegments =
            migrateKeyframesToSegments(metadata.zoomKeyframes, metadata.duration);
    return metadata;
}

std::vector<ZoomSegment> migrateKeyframesToSegments(std::vector<ZoomKeyframe> keyframes,
                                                    double videoDuration) {
    std::vector<Anchor> anchors;
    anchors.reserve(keyframes.size());
    for (const ZoomKeyframe& k : keyframes)
        anchors.push_back({k.time, k.center, k.level, k.easeIn, k.easeOut, k.easing});
    return anchorsToSegments(std::move(anchors), videoDuration);
}

std::vector<ZoomSegment> migrateEventsToSegments(std::vector<ZoomEvent> events,
                                                 double videoDuration) {
    std::vector<Anchor> anchors;
    anchors.reserve(events.size());
    for (const ZoomEvent& e : events) {
        const double ease = std::min(e.duration, 1.5);
        anchors.push_back(
            {e.timestamp, {e.position.x, 1.0 - e.position.y}, e.level, ease, ease, e.easing});
    }
    return anchorsToSegments(std::move(anchors), videoDuration);
}

std::vector<ZoomSegment>
generateAutoZoomSegments(const std::vector<ZoomEvent>& zoomEvents,
                         const std::vector<CursorClick>& cursorClicks,
                         const std::vector<CursorPosition>& cursorPositions, double videoDuration,
                         const std::vector<ZoomSegment>& manualSegments) {
    const AttentionAnalyzerInput input{.duration = videoDuration,
                                       .zoomEvents = zoomEvents,
                                       .cursorClicks = cursorClicks,
                                       .cursorPositions = cursorPositions,
                                       .manualSegments = manualSegments};
    return AttentionAnalyzer::analyze(input, AttentionAnalyzerOptions::balanced).zoomSegments;
}
