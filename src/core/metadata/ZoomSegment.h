#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/EasingFunction.h"

#include <QString>
#include <QUuid>

#include <array>
#include <optional>

// Who made a segment. Raw values "manual" and "auto" (`auto_` only because `auto` is a keyword).
enum class ZoomSegmentMode { manual, auto_ };

inline constexpr std::array allZoomSegmentModes{ZoomSegmentMode::manual, ZoomSegmentMode::auto_};

QString rawValue(ZoomSegmentMode mode);
std::optional<ZoomSegmentMode> zoomSegmentModeFromRawValue(const QString& raw);

// A closed range of seconds, both ends included.
struct TimeRange {
    double start = 0.0;
    double end = 0.0;
    bool operator==(const TimeRange&) const = default;
};

// One zoom on the time line: full zoom from `startTime` to `endTime`, eased in before and out
// after. Built through `Parameters`, which applies the limits that keep an edited segment
// sensible; the default constructor applies none, so that decoding can keep a document's values
// exactly as written (a file with a zoom level of 5 keeps it until the segment is edited).
struct ZoomSegment {
    static constexpr double minimumDuration = 0.5;
    static constexpr double defaultDuration = 3.0;
    static constexpr double defaultPanSmoothing = 0.75;
    static constexpr double defaultDeadZone = 0.06;

    struct Parameters;

    QUuid id{};
    double startTime = 0.0;
    double endTime = 0.0;
    double zoomLevel = 2.0;
    double easeIn = 0.8;
    double easeOut = 0.8;
    EasingFunction easing = EasingFunction::easeInOut;
    double panSmoothing = defaultPanSmoothing; // 0 follows hard, 1 follows softly
    double deadZone = defaultDeadZone;         // normalised radius of the follow dead zone
    ZoomSegmentMode mode = ZoomSegmentMode::manual;
    std::optional<Point> focusPoint{}; // normalised, origin top-left
    bool followCursor = false;
    std::optional<QString> autoReason{};
    std::optional<QString> attentionKind{}; // raw value of an AttentionKind

    ZoomSegment() = default;
    // endTime at least startTime + minimumDuration; zoomLevel 1...3; easeIn, easeOut 0...2;
    // panSmoothing 0...1; deadZone 0...0.3; focusPoint 0...1; an auto segment always follows.
    explicit ZoomSegment(const Parameters& parameters);

    double duration() const { return endTime - startTime; }
    TimeRange easeInRange() const;
    TimeRange bodyRange() const { return {startTime, endTime}; }
    TimeRange easeOutRange() const { return {endTime, endTime + easeOut}; }

    // Only the bodies count: eases may overlap, and segments that merely touch do not overlap.
    bool overlaps(const ZoomSegment& other) const;
    // Ease in, body and ease out, both ends inclusive.
    bool contains(double time) const;
    bool bodyContains(double time) const { return startTime <= time && time <= endTime; }

    bool operator==(const ZoomSegment&) const = default;
};

struct ZoomSegment::Parameters {
    QUuid id = QUuid::createUuid();
    double startTime = 0.0;
    double endTime = 0.0;
    double zoomLevel = 2.0;
    double easeIn = 0.8;
    double easeOut = 0.8;
    EasingFunction easing = EasingFunction::easeInOut;
    double panSmoothing = ZoomSegment::defaultPanSmoothing;
    double deadZone = ZoomSegment::defaultDeadZone;
    ZoomSegmentMode mode = ZoomSegmentMode::manual;
    std::optional<Point> focusPoint{};
    bool followCursor = false;
    std::optional<QString> autoReason{};
    std::optional<QString> attentionKind{};
};
