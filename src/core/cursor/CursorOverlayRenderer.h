#pragma once

#include "core/cursor/CursorOverlaySettings.h"
#include "core/cursor/CursorState.h"
#include "core/metadata/CursorClick.h"
#include "core/metadata/CursorPosition.h"

#include <cstdint>
#include <mutex>
#include <vector>

// Answers, for any time of a recording, where the drawn cursor is, how large, and how blurred.
// The path is smoothed once, in both directions so that it does not lag, and pinned to every
// click: where the user clicked, the drawn cursor is exactly there.
//
// Immutable after construction apart from the smoothed path, which is computed on first use
// under a once-flag; so one renderer may serve several threads. `cursorState` uses binary
// searches only.
class CursorOverlayRenderer final {
public:
    CursorOverlayRenderer(CursorOverlaySettings settings,
                          std::vector<CursorPosition> cursorPositions,
                          std::vector<CursorClick> clickEvents);

    CursorState cursorState(double time) const;

    const CursorOverlaySettings& settings() const { return m_settings; }
    // The samples sorted by time, with one sample added at every click that had none.
    const std::vector<CursorPosition>& cursorPositions() const { return m_cursorPositions; }
    const std::vector<CursorClick>& clickEvents() const { return m_clickEvents; }
    // Sorted, without repeats: the microsecond keys of the clicks.
    const std::vector<std::int64_t>& pinnedTimestampKeys() const { return m_pinnedTimestampKeys; }

    // The path the cursor is drawn along: the raw samples when smoothing is off.
    struct PathPoint {
        double timestamp = 0.0;
        Point position;
    };
    const std::vector<PathPoint>& smoothedPositions() const;

    // Parts of the state, exposed for the compositor's drawing and for tests.
    Point calculateVelocity(double time) const;
    double calculateMotionBlurAmount(Point velocity) const;
    double clickAnimationScale(double time) const;

    // A time's identity to the microsecond, so that a click and a sample at the same instant
    // are recognised as one.
    static std::int64_t timestampKey(double time);
    // Rises quickly to 1 by 0.3 and falls slowly to 0 at 1: the press and release of a click.
    static double smoothShrinkEase(double p);
    // The camera's fifth-power ease, for drawing code that animates the cursor.
    static double cinematicEase(double p);

private:
    void mergeClickAnchors();
    std::vector<PathPoint> applySmoothingToPositions() const;
    void applyBidirectionalSmoothing(std::size_t first, std::size_t last, bool firstPinned,
                                     bool lastPinned, std::vector<PathPoint>& result) const;

    CursorOverlaySettings m_settings;
    std::vector<CursorPosition> m_cursorPositions;
    std::vector<CursorClick> m_clickEvents;
    std::vector<std::int64_t> m_pinnedTimestampKeys;

    mutable std::once_flag m_smoothedOnce;
    mutable std::vector<PathPoint> m_smoothedPositions;
};
