#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/ZoomKeyframe.h"

#include <vector>

// A magnification and its normalised top-left focus, as the preview asks for them.
struct ZoomPreviewState {
    double scale = 1.0;
    Point center{0.5, 0.5};
    bool operator==(const ZoomPreviewState&) const = default;
};

// The zoom of the keyframe-era preview at `time`: eases from no zoom into the first keyframe
// over its ease-in, holds each keyframe's level and centre until the next one's ease-in begins
// and then eases across to it, and after the last eases back out over its ease-out. All eases
// use the camera's fifth-power curve. Keyframes may come in any order.
ZoomPreviewState previewSegmentedKeyframeState(double time, std::vector<ZoomKeyframe> keyframes);

// A bottom-left normalised point (a live zoom event's position) as a top-left one, clamped to
// the frame.
Point convertBLToTLPreview(Point bottomLeft);
