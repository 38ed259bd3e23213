#pragma once

#include <optional>

// The window of the recording's time line that the editor's timeline shows, with the mapping
// between time and x. A value; every mutation leaves it normalised: the window lies inside the
// recording and is never narrower than `minimumVisibleSpan`, except that a recording shorter
// than that is shown whole. Main thread, like the editor that owns it.
struct TimelineViewport {
    static constexpr double minimumVisibleSpan = 0.3;

    double duration = 0.0;
    double visibleStart = 0.0;
    double visibleEnd = minimumVisibleSpan;

    explicit TimelineViewport(double duration = 0.0,
                              std::optional<double> visibleStart = std::nullopt,
                              std::optional<double> visibleEnd = std::nullopt);

    double visibleDuration() const;
    bool isShowingFullDuration() const;

    TimelineViewport normalized(double newDuration) const;
    void fitToDuration(std::optional<double> newDuration = std::nullopt);
    void pan(double seconds);
    // A factor above 1 zooms in; `anchorTime` keeps its place on the screen.
    void zoom(double factor, double anchorTime);

    double clampedTime(double time) const;
    double timeToX(double time, double width) const;
    double xToTime(double x, double width) const;

    struct XRange {
        double x = 0.0;
        double width = 0.0;
        bool operator==(const XRange&) const = default;
    };
    // Where a time range lies on screen, or nothing when no part of it is visible.
    std::optional<XRange> visibleIntersection(double start, double end, double width) const;

    bool operator==(const TimelineViewport&) const = default;

private:
    void normalizeInPlace();
};
