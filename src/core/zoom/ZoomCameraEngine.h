#pragma once

#include "core/metadata/CursorPosition.h"
#include "core/metadata/ZoomSegment.h"
#include "core/zoom/CameraSpring.h"
#include "core/zoom/ZoomCameraFrame.h"

#include <optional>
#include <vector>

// Decides for any moment of a video how the picture is magnified and moved. The editor's
// preview and the export each hold one, and both give the same answer for the same history.
// Beyond easing it keeps the picture calm: it follows the cursor only when the cursor leaves a
// safe zone, holds the focus while zooming out, joins neighbouring zooms into one camera move,
// and, for export, runs the result through springs.
//
// Not thread-safe: each owner evaluates its engine on one thread (the editor's main thread, the
// compositor's render stage).
class ZoomCameraEngine final {
public:
    struct FollowState {
        bool initialized = false;
        std::optional<QUuid> activeSegmentID;
        double lastTime = 0.0;
        Point focus{0.5, 0.5};
        Point frozenFocus{0.5, 0.5};
        bool reachedFullZoom = false;
        bool operator==(const FollowState&) const = default;
    };

    ZoomCameraEngine() { reset(); }

    // `cursorPositions` must be sorted by timestamp; segments may come in any order.
    ZoomCameraFrame evaluate(double time, const std::vector<ZoomSegment>& segments,
                             const std::vector<CursorPosition>& cursorPositions, Size renderSize,
                             const ZoomCameraOptions& options);
    // Forgets follow history and springs, as before the first frame of an export.
    void reset();

    const FollowState& followState() const { return m_followState; }

    // 0 outside the segment's ease ranges, 1 on its body, the fifth-power ease in between.
    static double segmentStrength(const ZoomSegment& segment, double time);
    // The sampled cursor at `time`, linearly interpolated; nothing when there are no samples.
    static std::optional<Point> cursorPosition(double time,
                                               const std::vector<CursorPosition>& positions);
    // Moves the focus on each axis to the cursor once the cursor leaves the middle of the
    // visible window (the window shrunk by `ratio` of its side on every edge).
    static Point recenterFocusWhenCursorLeavesSafeZone(Point focus, Point cursor, double scale,
                                                       double ratio);

private:
    ZoomCameraFrame targetFrame(double time, const std::vector<ZoomSegment>& segments,
                                const std::vector<CursorPosition>& cursorPositions, Size renderSize,
                                const ZoomCameraOptions& options);
    std::optional<ZoomCameraFrame>
    connectedTransitionFrame(double time, const std::vector<const ZoomSegment*>& sorted,
                             const std::vector<CursorPosition>& cursorPositions, Size renderSize,
                             const ZoomCameraOptions& options);
    ZoomCameraFrame frame(const ZoomSegment& segment, double time, double strength,
                          const std::vector<CursorPosition>& cursorPositions, Size renderSize,
                          const ZoomCameraOptions& options, bool connected);
    Point focusForSegment(const ZoomSegment& segment, double time, double strength,
                          const std::vector<CursorPosition>& cursorPositions,
                          const ZoomCameraOptions& options);
    Point cursorFollowFocus(const ZoomSegment& segment, double time, double strength, Point base,
                            const std::vector<CursorPosition>& cursorPositions,
                            const ZoomCameraOptions& options);
    void resetFollowIfNeeded(const ZoomSegment& segment, double time);
    ZoomCameraFrame springFrame(const ZoomCameraFrame& target, double time, Size renderSize,
                                double smoothness);
    void resetSpringsTo(const ZoomCameraFrame& target);

    FollowState m_followState;
    SpringState m_springScale;
    SpringState m_springX;
    SpringState m_springY;
    std::optional<double> m_lastSpringTime;
};
