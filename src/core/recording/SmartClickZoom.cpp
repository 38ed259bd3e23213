#include "core/recording/SmartClickZoom.h"

#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/ZoomRenderer.h"
#include "core/support/Log.h"

#include <algorithm>
#include <cmath>

namespace {
double distanceBetween(Point a, Point b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}
} // namespace

SmartClickZoom::SmartClickZoom(Targets targets)
    : m_targets(std::move(targets)), m_pendingDecisions(std::make_unique<QObject>()) {
    m_smartZoomOut.setSingleShot(true);
    QObject::connect(&m_smartZoomOut, &QTimer::timeout, [this] {
        if (ZoomRenderer* renderer = m_targets.zoomRenderer())
            renderer->endClickZoom();
    });
}

SmartClickZoom::~SmartClickZoom() = default;

void SmartClickZoom::recordSmartCursorSample(Point positionTL, double timestamp) {
    m_samples.push_back(Sample{timestamp, positionTL});
    const double oldest = timestamp - historySeconds;
    while (!m_samples.empty() && m_samples.front().timestamp < oldest)
        m_samples.pop_front();
    while (m_samples.size() > historyCount)
        m_samples.pop_front();
}

void SmartClickZoom::scheduleSmartClickZoomDecision(const Click& click) {
    QTimer::singleShot(int(decisionDelay * 1000), m_pendingDecisions.get(),
                       [this, click] { decideNow(click); });
}

void SmartClickZoom::decideNow(const Click& click) {
    if (!m_targets.isRecordingUnpaused())
        return;
    const Decision decision =
        smartClickZoomDecision(click.clickTimestamp, click.normalizedTL, click.zoomDuration);
    if (!decision.accept) {
        logLine("🖱️ Smart click-to-zoom skipped at {:.2f}s", click.clickTimestamp);
        return;
    }
    logLine("🖱️ Smart click-to-zoom accepted at {:.2f}s (confidence: {:.2f})",
            click.clickTimestamp, decision.confidence);
    if (MetadataRecorderEngine* metadata = m_targets.metadataRecorder())
        metadata->recordZoomEvent(click.normalizedBL, click.zoomLevel, decision.duration);
    m_lastAcceptedTime = click.clickTimestamp;
    m_lastAcceptedPosition = click.normalizedTL;
    // The renderer's anchors count from the top left like the metadata's clicks.
    // The zoom burnt into the file is the one recorded: the configured level. A level never
    // set (0) leaves the renderer's own scale.
    if (ZoomRenderer* renderer = m_targets.zoomRenderer()) {
        if (click.zoomLevel > 0)
            renderer->setMaxZoomScale(click.zoomLevel);
        renderer->triggerClickZoom(click.normalizedTL);
    }
    scheduleSmartZoomOut(decision.duration + holdAfterZoom);
}

SmartClickZoom::Decision SmartClickZoom::smartClickZoomDecision(double t, Point p,
                                                                double configuredDuration) const {
    std::vector<Sample> before;
    std::vector<Sample> after;
    int near = 0;
    for (const Sample& sample : m_samples) {
        if (sample.timestamp >= t - windowBefore && sample.timestamp <= t)
            before.push_back(sample);
        if (sample.timestamp >= t && sample.timestamp <= t + windowAfter) {
            after.push_back(sample);
            if (distanceBetween(sample.positionTL, p) <= dwellRadius)
                ++near;
        }
    }
    const double dwell = after.empty() ? dwellWithoutSamples : double(near) / after.size();
    const double speedBefore = averageCursorSpeed(before);
    const double speedAfter = averageCursorSpeed(after);
    const double sinceLast = m_lastAcceptedTime ? t - *m_lastAcceptedTime : t + 1000.0;
    const double distance =
        m_lastAcceptedPosition ? distanceBetween(p, *m_lastAcceptedPosition) : 1.0;

    int score = 0;
    if (dwell >= 0.56)
        score += 2;
    else if (dwell >= 0.38)
        score += 1;
    if (speedAfter < 0.58)
        score += 1;
    if (speedBefore < 1.15)
        score += 1;
    if (distance > 0.14)
        score += 1;
    if (sinceLast > 1.4)
        score += 1;
    if (speedBefore > 1.9 && dwell < 0.38)
        score -= 2;
    if (speedAfter > 1.35)
        score -= 1;
    if (sinceLast < 0.35)
        score -= 3;
    if (sinceLast < 0.75 && distance < 0.1)
        score -= 2;

    Decision decision;
    decision.accept = score >= 1 && (dwell >= 0.38 || distance > 0.14 || sinceLast > 0.85);
    decision.confidence = std::clamp((score + 2) / 6.0, 0.0, 1.0);
    double duration = configuredDuration + std::clamp((dwell - 0.45) * 0.5, 0.0, 0.25);
    if (speedAfter < 0.3)
        duration += 0.1;
    if (distance > 0.22)
        duration += 0.05;
    decision.duration = std::clamp(duration, 0.45, 1.1);
    return decision;
}

double SmartClickZoom::averageCursorSpeed(const std::vector<Sample>& samples) {
    if (samples.size() < 2)
        return 0.0;
    double travelled = 0.0;
    for (std::size_t i = 1; i < samples.size(); ++i)
        travelled += distanceBetween(samples[i].positionTL, samples[i - 1].positionTL);
    const double elapsed = samples.back().timestamp - samples.front().timestamp;
    return elapsed > 0 ? travelled / elapsed : 0.0;
}

void SmartClickZoom::scheduleSmartZoomOut(double after) {
    // A new accepted click prolongs the zoom instead of ending it early.
    m_smartZoomOut.start(int(std::max(after, shortestZoomOutDelay) * 1000));
}

void SmartClickZoom::resetSmartClickZoomState() {
    m_smartZoomOut.stop();
    m_pendingDecisions = std::make_unique<QObject>();
    m_samples.clear();
    m_lastAcceptedTime.reset();
    m_lastAcceptedPosition.reset();
}
