#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <vector>

// Bringing the zoom parts of a loaded document to the segment model. Pure functions: the editor
// calls them when it opens a recording and keeps the result.
//
// Thread: any.

// 1. No segments: the attention analysis makes automatic ones. 2. No keyframes but live zoom
// events: one keyframe per event. 3. Still no segments: the keyframes become segments. So a
// recording without segments gets the analysis first, and its old keyframes only when the
// analysis finds nothing.
RecordingMetadata migrateZoomMetadata(RecordingMetadata metadata);

// One manual segment per keyframe, centred on it with the default length, cut so that
// neighbours never overlap; a keyframe whose span shrinks below the minimum yields nothing.
std::vector<ZoomSegment> migrateKeyframesToSegments(std::vector<ZoomKeyframe> keyframes,
                                                    double videoDuration);

// The same for live zoom events, whose positions are mirrored to top-left and whose eases are
// limited to 1.5 seconds.
std::vector<ZoomSegment> migrateEventsToSegments(std::vector<ZoomEvent> events,
                                                 double videoDuration);

// The attention analysis with the balanced options; its automatic segments.
std::vector<ZoomSegment>
generateAutoZoomSegments(const std::vector<ZoomEvent>& zoomEvents,
                         const std::vector<CursorClick>& cursorClicks,
                         const std::vector<CursorPosition>& cursorPositions, double videoDuration,
                         const std::vector<ZoomSegment>& manualSegments = {});
