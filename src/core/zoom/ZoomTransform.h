#pragma once

#include "core/geometry/AffineTransform.h"
#include "core/geometry/Rect.h"

// The geometry of a zoom: where the zoom window may sit and which transform shows it. Focus
// points are normalised with the origin at the top left; transforms work in render pixels.
// Pure functions; thread-safe.

// Limits a focus so that the zoom window, 1/scale of the frame on each side, stays inside the
// picture: its centre keeps at least half a window from every edge.
Point clampFocus(Point focus, double scale);

// The transform that magnifies by `targetScale` around `focus`, `progress` of the way there.
// Scale and translation are both linear in progress, so a zoom moves on a straight line; at
// full progress the focus lands in the centre of the output.
AffineTransform zoomTransform(Point focus, double targetScale, double progress, Size renderSize);

// The focus that a transform of this scale shows in the centre, clamped; (0.5, 0.5) when the
// render size or scale is empty.
Point focusFromTransform(const AffineTransform& transform, double scale, Size renderSize);
