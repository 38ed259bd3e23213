#pragma once

#include "core/geometry/Rect.h"

#include <QObject>
#include <QTimer>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class MetadataRecorderEngine;
class ZoomRenderer;

// Decides from the cursor's behaviour around a left click whether the click deserves a zoom:
// a small additive score over the cursor's dwell near the click, its speed before and after,
// and the time and distance since the last accepted zoom. Deliberate clicks zoom; hurried or
// repeated ones do not. An accepted click becomes a zoom event in the metadata and drives the
// live renderer, which zooms out again after the decision's duration.
//
// Points are normalised with the origin at the top left; times are seconds on the video's
// time line. Thread: main; the scheduled decision and the zoom-out run from its event loop.
class SmartClickZoom {
public:
    struct Sample {
        double timestamp = 0.0;
        Point positionTL;
    };
    struct Decision {
        bool accept = false;
        double confidence = 0.0;
        double duration = 0.0;
    };
    struct Click {
        double clickTimestamp = 0.0;
        Point normalizedTL;
        Point normalizedBL;
        double zoomLevel = 2.0;
        double zoomDuration = 0.5;
    };
    // What a decision reaches when it runs; looked up then, since a recording may have ended.
    struct Targets {
        std::function<bool()> isRecordingUnpaused;
        std::function<MetadataRecorderEngine*()> metadataRecorder;
        std::function<ZoomRenderer*()> zoomRenderer;
    };

    static constexpr double decisionDelay = 0.24;
    static constexpr double windowBefore = 0.35;
    static constexpr double windowAfter = 0.32;
    static constexpr double dwellRadius = 0.032;
    static constexpr double dwellWithoutSamples = 0.6;
    static constexpr double historySeconds = 8.0;
    static constexpr std::size_t historyCount = 16000;
    static constexpr double holdAfterZoom = 0.55;
    static constexpr double shortestZoomOutDelay = 0.25;

    explicit SmartClickZoom(Targets targets);
    ~SmartClickZoom();

    void recordSmartCursorSample(Point positionTL, double timestamp);
    // Decides `decisionDelay` later, once the cursor's behaviour after the click is known.
    void scheduleSmartClickZoomDecision(const Click& click);
    // What the scheduled decision does, at once.
    void decideNow(const Click& click);
    Decision smartClickZoomDecision(double clickTimestamp, Point clickPositionTL,
                                    double configuredDuration) const;
    // Normalised widths per second over the samples, 0 with fewer than two or no time passed.
    static double averageCursorSpeed(const std::vector<Sample>& samples);
    void scheduleSmartZoomOut(double after);
    void resetSmartClickZoomState();

    const std::deque<Sample>& samples() const { return m_samples; }
    std::optional<double> lastAcceptedSmartZoomTime() const { return m_lastAcceptedTime; }
    std::optional<Point> lastAcceptedSmartZoomPositionTL() const { return m_lastAcceptedPosition; }

private:
    Targets m_targets;
    std::deque<Sample> m_samples;
    std::optional<double> m_lastAcceptedTime;
    std::optional<Point> m_lastAcceptedPosition;
    // Pending decisions are children of this object; replacing it cancels them all.
    std::unique_ptr<QObject> m_pendingDecisions;
    QTimer m_smartZoomOut;
};
