#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CursorPosition.h"
#include "core/metadata/ZoomSegment.h"

#include <cstddef>
#include <optional>
#include <vector>

// Smoothing of a recorded cursor path for a zoom that follows it. One algorithm for the
// editor's preview and the export compositor, so both show the same camera. Pure functions of
// their arguments; thread-safe.

// The share of the remaining distance that a value following its target covers in `dt`
// seconds, when it covers half in `halfLife`. Independent of the frame rate: two steps of dt
// cover as much as one of 2 dt. A half life of 0 or less means no smoothing (1).
double smoothingAlpha(double dt, double halfLife);

// Places the cursor rested at: in time order each sample joins the first cluster whose centre
// lies within `radius` (the centre being the running mean), or founds one. Fewer than 3 samples,
// or no radius, make every sample its own cluster.
std::vector<Point> focusClusters(const std::vector<CursorPosition>& positions, double radius);

// The index of the centre nearest to `point`, the first on a tie; nothing for no centres.
std::optional<std::size_t> nearestClusterIndex(Point point, const std::vector<Point>& centers);

// The path a zoom of `segment` follows: the cursor settles on the places it rests at, ignores
// jitter inside the segment's dead zone, and moves there with a half life set by its
// `panSmoothing`; fast motion shortens both the wait and the lag. Timestamps are kept.
std::vector<CursorPosition> smoothCursorPositions(const std::vector<CursorPosition>& positions,
                                                  const ZoomSegment& segment);

// One further forward pass with a fixed half life, for a softer path.
std::vector<CursorPosition> applySecondPassSmoothing(const std::vector<CursorPosition>& positions,
                                                     double halfLife);
