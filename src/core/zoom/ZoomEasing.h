#pragma once

// The easing curves of zoom: one curve shared by the camera, the keyframe preview and the
// cursor overlay, so that every zoom in the product starts and lands alike. Pure; thread-safe.

// A fifth-power ease in and out (the name is historical): 16 p^5 up to the middle, mirrored
// after it; `p` is clamped to 0 ... 1. Its flat ends make a zoom start and land without a jolt.
double zoomCubicEaseInOut(double p);

// y of the cubic Bézier from (0, 0) to (1, 1) with control points (x1, y1), (x2, y2), at the
// point where x equals `t` (clamped to 0 ... 1), as CSS timing functions define it.
double cubicBezier(double x1, double y1, double x2, double y2, double t);
