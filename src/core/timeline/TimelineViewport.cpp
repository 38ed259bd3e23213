#include "core/timeline/TimelineViewport.h"

#include <algorithm>
#include <cmath>

namespace {

double validDuration(double duration) {
    return std::isfinite(duration) && duration > 0.0 ? duration : 0.0;
}

} // namespace

TimelineViewport::TimelineViewport(double duration, std::optional<double> visibleStart,
                                   std::optional<double> visibleEnd)
    : duration(validDuration(duration)) {
    this->visibleStart = visibleStart.value_or(0.0);
    this->visibleEnd = visibleEnd.value_or(this->duration);
    normalizeInPlace();
}

double TimelineViewport::visibleDuration() const {
    return std::max(visibleEnd - visibleStart, minimumVisibleSpan);
}

bool TimelineViewport::isShowingFullDuration() const {
    constexpr double tolerance = 0.0001;
    return std::abs(visibleStart) <= tolerance && std::abs(visibleEnd - duration) <= tolerance;
}

TimelineViewport TimelineViewport::normalized(double newDuration) const {
    TimelineViewport copy = *this;
    copy.duration = validDuration(newDuration);
    copy.normalizeInPlace();
    return copy;
}

void TimelineViewport::fitToDuration(std::optional<double> newDuration) {
    if (newDuration) {
        duration = validDuration(*newDuration);
    }
    visibleStart = 0.0;
    visibleEnd = duration;
    normalizeInPlace();
}

void TimelineViewport::pan(double seconds) {
    if (!(duration > 0.0 && visibleDuration() < duration)) {
        fitToDuration();
        return;
    }
    const double span = visibleDuration();
    // Written as max-then-min so that a NaN offset falls back to the start, not into NaN.
    double start = visibleStart + seconds;
    start = std::min(std::max(start, 0.0), duration - span);
    visibleStart = std::isfinite(start) ? start : 0.0;
    visibleEnd = visibleStart + span;
}

void TimelineViewport::zoom(double factor, double anchorTime) {
    if (!(duration > 0.0) || !std::isfinite(factor) || !(factor > 0.0)) {
        fitToDuration();
        return;
    }
    const double maxSpan = std::max(duration, minimumVisibleSpan);
    const double current = std::clamp(visibleDuration(), minimumVisibleSpan, maxSpan);
    const double minSpan = std::min(minimumVisibleSpan, maxSpan);
    const double next = std::clamp(current / factor, minSpan, std::max(duration, minSpan));
    const double anchor = clampedTime(anchorTime);
    const double ratio =
        current > 0.0 ? std::clamp((anchor - visibleStart) / current, 0.0, 1.0) : 0.5;
    visibleStart = anchor - next * ratio;
    visibleEnd = visibleStart + next;
    normalizeInPlace();
}

double TimelineViewport::clampedTime(double time) const {
    return std::clamp(time, 0.0, duration);
}

double TimelineViewport::timeToX(double time, double width) const {
    const double span = visibleDuration();
    if (!(width > 0.0) || !(span > 0.0)) {
        return 0.0;
    }
    return (clampedTime(time) - visibleStart) / span * width;
}

double TimelineViewport::xToTime(double x, double width) const {
    const double span = visibleDuration();
    if (!(width > 0.0) || !(span > 0.0)) {
        return visibleStart;
    }
    return clampedTime(std::clamp(x / width, 0.0, 1.0) * span + visibleStart);
}

std::optional<TimelineViewport::XRange>
TimelineViewport::visibleIntersection(double start, double end, double width) const {
    if (!(width > 0.0)) {
        return std::nullopt;
    }
    const double from = std::max(start, visibleStart);
    const double to = std::min(end, visibleEnd);
    if (to < from) {
        return std::nullopt;
    }
    const double x0 = timeToX(from, width);
    const double x1 = timeToX(to, width);
    return XRange{x0, std::max(0.0, x1 - x0)};
}

void TimelineViewport::normalizeInPlace() {
    if (!(duration > 0.0)) {
        duration = 0.0;
        visibleStart = 0.0;
        visibleEnd = minimumVisibleSpan;
        return;
    }
    const double maxSpan = std::max(duration, minimumVisibleSpan);
    double span = visibleEnd - visibleStart;
    if (!std::isfinite(span) || !(span > 0.0)) {
        span = duration;
    }
    span = std::min(maxSpan, std::max(span, minimumVisibleSpan));
    if (duration <= span) {
        visibleStart = 0.0;
        visibleEnd = duration;
        return;
    }
    const double start = std::isfinite(visibleStart) ? std::max(visibleStart, 0.0) : 0.0;
    visibleStart = std::min(std::max(duration - span, 0.0), start);
    visibleEnd = visibleStart + span;
}
