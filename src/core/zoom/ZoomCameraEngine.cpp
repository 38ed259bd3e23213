#include "core/zoom/ZoomCameraEngine.h"

#include "core/zoom/ZoomEasing.h"
#include "core/zoom/ZoomTransform.h"

#include <algorithm>
#include <cmath>

namespace {

// Strengths this close count as equal, so that two fully zoomed overlapping segments are
// ranked by start time rather than by rounding noise.
constexpr double strengthTolerance = 0.0001;
// A backward step larger than this is a seek, which starts follow and springs afresh.
constexpr double backwardJumpTolerance = 0.001;
constexpr double followMinimumStrength = 0.01;
constexpr double fullZoomStrength = 0.99;
constexpr double defaultSpringStepMs = 16.666666666666668;
constexpr double minimumScale = 0.0001;

// The segment's own focus: a fixed point, else where the cursor was when it started, else the
// middle; clamped so that the zoom window fits.
Point resolveBaseFocus(const ZoomSegment& segment, double time,
                       const std::vector<CursorPosition>& positions) {
    Point focus{0.5, 0.5};
    if (segment.focusPoint) {
        focus = *segment.focusPoint;
    } else if (auto cursor = ZoomCameraEngine::cursorPosition(time, positions)) {
        focus = *cursor;
    }
    return clampFocus(focus, segment.zoomLevel);
}

Point lerp(Point a, Point b, double t) {
    return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t};
}

} // namespace

ZoomCameraFrame ZoomCameraEngine::evaluate(double time, const std::vector<ZoomSegment>& segments,
                                           const std::vector<CursorPosition>& cursorPositions,
                                           Size renderSize, const ZoomCameraOptions& options) {
    const ZoomCameraFrame target =
        targetFrame(time, segments, cursorPositions, renderSize, options);
    if (!options.useSpringSmoothing) {
        resetSpringsTo(target);
        return target;
    }
    return springFrame(target, time, renderSize, options.zoomSmoothness);
}

void ZoomCameraEngine::reset() {
    m_followState = FollowState{};
    m_springScale = {1.0, 0.0, false};
    m_springX = {0.0, 0.0, false};
    m_springY = {0.0, 0.0, false};
    m_lastSpringTime.reset();
}

double ZoomCameraEngine::segmentStrength(const ZoomSegment& segment, double time) {
    const double lower = std::max(0.0, segment.startTime - segment.easeIn);
    const double upper = segment.endTime + segment.easeOut;
    if (time < lower || time > upper) {
        return 0.0;
    }
    if (time < segment.startTime) {
        // Divided by the full ease, not the part left after time 0: a segment near the start
        // of the video jumps to full zoom at its start rather than easing faster.
        return zoomCubicEaseInOut((time - lower) / std::max(0.0001, segment.easeIn));
    }
    if (time <= segment.endTime) {
        return 1.0;
    }
    return 1.0 - zoomCubicEaseInOut((time - segment.endTime) / std::max(0.0001, segment.easeOut));
}

std::optional<Point>
ZoomCameraEngine::cursorPosition(double time, const std::vector<CursorPosition>& positions) {
    if (positions.empty()) {
        return std::nullopt;
    }
    if (time <= positions.front().timestamp) {
        return positions.front().position;
    }
    if (time >= positions.back().timestamp) {
        return positions.back().position;
    }
    const auto after =
        std::upper_bound(positions.begin(), positions.end(), time,
                         [](double t, const CursorPosition& p) { return t < p.timestamp; });
    const CursorPosition& next = *after;
    const CursorPosition& previous = *(after - 1);
    const double span = next.timestamp - previous.timestamp;
    if (span <= 0.0001) {
        return previous.position;
    }
    return lerp(previous.position, next.position, (time - previous.timestamp) / span);
}

Point ZoomCameraEngine::recenterFocusWhenCursorLeavesSafeZone(Point focus, Point cursor,
                                                              double scale, double ratio) {
    const double s = std::max(1.0, scale);
    const double half = 1.0 / (2.0 * s);
    const double margin = 2.0 * half * std::clamp(ratio, 0.0, 0.49);
    auto axis = [&](double f, double c) {
        const double low = f - half + margin;
        const double high = f + half - margin;
        return (c < low || c > high) ? c : f;
    };
    return clampFocus({axis(focus.x, cursor.x), axis(focus.y, cursor.y)}, s);
}

ZoomCameraFrame ZoomCameraEngine::targetFrame(double time, const std::vector<ZoomSegment>& segments,
                                              const std::vector<CursorPosition>& cursorPositions,
                                              Size renderSize, const ZoomCameraOptions& options) {
    if (segments.empty()) {
        m_followState = FollowState{};
        return ZoomCameraFrame::identity();
    }
    // Pointers, not copies: segments carry strings, and this runs once a frame.
    std::vector<const ZoomSegment*> sorted;
    sorted.reserve(segments.size());
    for (const ZoomSegment& segment : segments) {
        sorted.push_back(&segment);
    }
    std::stable_sort(sorted.begin(), sorted.end(), [](const ZoomSegment* a, const ZoomSegment* b) {
        return a->startTime < b->startTime;
    });

    if (options.connectZooms) {
        if (auto connected =
                connectedTransitionFrame(time, sorted, cursorPositions, renderSize, options)) {
            return *connected;
        }
    }

    // The strongest segment wins; among equally strong ones the later, which the user placed
    // on top of the earlier.
    const ZoomSegment* best = nullptr;
    double bestStrength = 0.0;
    for (const ZoomSegment* segment : sorted) {
        const double strength = segmentStrength(*segment, time);
        if (!(strength > 0.0)) {
            continue;
        }
        const bool stronger = strength > bestStrength + strengthTolerance;
        const bool tiedButLater = std::abs(strength - bestStrength) <= strengthTolerance && best &&
                                  segment->startTime > best->startTime;
        if (!best || stronger || tiedButLater) {
            best = segment;
            bestStrength = strength;
        }
    }
    if (!best) {
        m_followState = FollowState{};
        return ZoomCameraFrame::identity();
    }
    return frame(*best, time, bestStrength, cursorPositions, renderSize, options, false);
}

std::optional<ZoomCameraFrame>
ZoomCameraEngine::connectedTransitionFrame(double time,
                                           const std::vector<const ZoomSegment*>& sorted,
                                           const std::vector<CursorPosition>& cursorPositions,
                                           Size renderSize, const ZoomCameraOptions& options) {
    if (sorted.size() < 2) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i + 1 < sorted.size(); ++i) {
        const ZoomSegment& current = *sorted[i];
        const ZoomSegment& next = *sorted[i + 1];
        const double gap = next.startTime - current.endTime;
        if (gap > options.connectedZoomGap) {
            continue;
        }
        double start = current.endTime;
        double end = current.endTime + options.connectedPanDuration;
        if (gap < 0.0) {
            start = std::max(current.startTime, next.startTime - options.connectedPanDuration);
            end = next.startTime;
        }

        if (time >= start && time <= end) {
            const double p = (time - start) / std::max(0.0001, end - start);
            const double e = cubicBezier(0.1, 0.0, 0.2, 1.0, p);
            // A pan goes between the segments' own focus points; following the cursor here
            // would make the camera wander mid-flight.
            const Point fromFocus = resolveBaseFocus(current, current.endTime, cursorPositions);
            const Point toFocus = resolveBaseFocus(next, next.startTime, cursorPositions);
            const AffineTransform from =
                zoomTransform(fromFocus, current.zoomLevel, 1.0, renderSize);
            const AffineTransform to = zoomTransform(toFocus, next.zoomLevel, 1.0, renderSize);

            ZoomCameraFrame result;
            result.transform = AffineTransform::interpolate(from, to, e);
            result.scale = current.zoomLevel + (next.zoomLevel - current.zoomLevel) * e;
            result.center = focusFromTransform(result.transform,
                                               std::max(result.scale, minimumScale), renderSize);
            result.strength = 1.0;
            result.activeSegmentID = next.id;
            result.isConnectedTransition = true;
            return result;
        }
        if (gap > 0.0 && time > end && time < next.startTime) {
            return frame(next, time, 1.0, cursorPositions, renderSize, options, true);
        }
    }
    return std::nullopt;
}

ZoomCameraFrame ZoomCameraEngine::frame(const ZoomSegment& segment, double time, double strength,
                                        const std::vector<CursorPosition>& cursorPositions,
                                        Size renderSize, const ZoomCameraOptions& options,
                                        bool connected) {
    const Point focus = focusForSegment(segment, time, strength, cursorPositions, options);
    ZoomCameraFrame result;
    result.transform = zoomTransform(focus, segment.zoomLevel, strength, renderSize);
    result.scale = 1.0 + (segment.zoomLevel - 1.0) * strength;
    result.center =
        focusFromTransform(result.transform, std::max(result.scale, minimumScale), renderSize);
    result.strength = strength;
    result.activeSegmentID = segment.id;
    result.isConnectedTransition = connected;
    return result;
}

Point ZoomCameraEngine::focusForSegment(const ZoomSegment& segment, double time, double strength,
                                        const std::vector<CursorPosition>& cursorPositions,
                                        const ZoomCameraOptions& options) {
    const Point base = resolveBaseFocus(segment, segment.startTime, cursorPositions);
    if (segment.followCursor) {
        return cursorFollowFocus(segment, time, strength, base, cursorPositions, options);
    }
    resetFollowIfNeeded(segment, time);
    return clampFocus(base, segment.zoomLevel);
}

Point ZoomCameraEngine::cursorFollowFocus(const ZoomSegment& segment, double time, double strength,
                                          Point base,
                                          const std::vector<CursorPosition>& cursorPositions,
                                          const ZoomCameraOptions& options) {
    if (strength < followMinimumStrength) {
        m_followState = FollowState{};
        return base;
    }
    FollowState& state = m_followState;
    if (!state.initialized || time + backwardJumpTolerance < state.lastTime ||
        state.activeSegmentID != segment.id) {
        state = FollowState{false, segment.id, time, base, base, false};
    }
    const auto cursor = cursorPosition(time, cursorPositions);
    if (!cursor) {
        return state.initialized ? state.focus : base;
    }
    if (strength >= fullZoomStrength) {
        state.reachedFullZoom = true;
    }
    if (options.freezeFocusDuringZoomOut && state.reachedFullZoom && strength < fullZoomStrength) {
        return state.frozenFocus;
    }
    const Point current = state.initialized ? state.focus : base;
    const Point focus = recenterFocusWhenCursorLeavesSafeZone(current, *cursor, segment.zoomLevel,
                                                              options.safeZoneRatio);
    state.initialized = true;
    state.activeSegmentID = segment.id;
    state.lastTime = time;
    state.focus = focus;
    state.frozenFocus = focus;
    return focus;
}

void ZoomCameraEngine::resetFollowIfNeeded(const ZoomSegment& segment, double time) {
    if (m_followState.activeSegmentID != std::optional<QUuid>(segment.id) ||
        time + backwardJumpTolerance < m_followState.lastTime) {
        m_followState = FollowState{};
    }
}

ZoomCameraFrame ZoomCameraEngine::springFrame(const ZoomCameraFrame& target, double time,
                                              Size renderSize, double smoothness) {
    double stepMs = defaultSpringStepMs;
    if (m_lastSpringTime && *m_lastSpringTime <= time) {
        stepMs = (time - *m_lastSpringTime) * 1000.0;
    } else {
        // First frame, or a seek backwards: land on the target at once.
        m_springScale.initialized = false;
        m_springX.initialized = false;
        m_springY.initialized = false;
    }
    m_lastSpringTime = time;

    const SpringConfig config = springConfig(smoothness);
    const double scale = stepSpring(m_springScale, target.scale, stepMs, config);
    const double tx = stepSpring(m_springX, target.transform.tx, stepMs, config);
    const double ty = stepSpring(m_springY, target.transform.ty, stepMs, config);

    ZoomCameraFrame result = target;
    result.scale = scale;
    result.transform = {scale, 0.0, 0.0, scale, tx, ty};
    result.center = focusFromTransform(result.transform, std::max(scale, minimumScale), renderSize);
    return result;
}

void ZoomCameraEngine::resetSpringsTo(const ZoomCameraFrame& target) {
    m_springScale = {target.scale, 0.0, false};
    m_springX = {target.transform.tx, 0.0, false};
    m_springY = {target.transform.ty, 0.0, false};
    m_lastSpringTime.reset();
}
