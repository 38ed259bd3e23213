#include "core/metadata/ZoomSegment.h"

#include <algorithm>

QString rawValue(ZoomSegmentMode mode) {
    switch (mode) {
    case ZoomSegmentMode::manual:
        return QStringLiteral("manual");
    case ZoomSegmentMode::auto_:
        return QStringLiteral("auto");
    }
    return {};
}

std::optional<ZoomSegmentMode> zoomSegmentModeFromRawValue(const QString& raw) {
    for (ZoomSegmentMode mode : allZoomSegmentModes) {
        if (rawValue(mode) == raw)
            return mode;
    }
    return std::nullopt;
}

ZoomSegment::ZoomSegment(const Parameters& p)
    : id(p.id), startTime(p.startTime), endTime(std::max(p.endTime, p.startTime + minimumDuration)),
      zoomLevel(std::clamp(p.zoomLevel, 1.0, 3.0)), easeIn(std::clamp(p.easeIn, 0.0, 2.0)),
      easeOut(std::clamp(p.easeOut, 0.0, 2.0)), easing(p.easing),
      panSmoothing(std::clamp(p.panSmoothing, 0.0, 1.0)),
      deadZone(std::clamp(p.deadZone, 0.0, 0.3)), mode(p.mode),
      followCursor(p.followCursor || p.mode == ZoomSegmentMode::auto_), autoReason(p.autoReason),
      attentionKind(p.attentionKind) {
    if (p.focusPoint)
        focusPoint =
            Point{std::clamp(p.focusPoint->x, 0.0, 1.0), std::clamp(p.focusPoint->y, 0.0, 1.0)};
}

TimeRange ZoomSegment::easeInRange() const {
    return {std::max(0.0, startTime - easeIn), startTime};
}

bool ZoomSegment::overlaps(const ZoomSegment& other) const {
    return startTime < other.endTime && other.startTime < endTime;
}

bool ZoomSegment::contains(double time) const {
    return std::max(0.0, startTime - easeIn) <= time && time <= endTime + easeOut;
}
