#include "core/analysis/AttentionAnalyzer.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {

// Confidences this close count as equal when the dominant moment of a cluster is chosen.
constexpr double confidenceTolerance = 0.0001;

Point clampPoint(Point p) {
    return {std::clamp(p.x, 0.0, 1.0), std::clamp(p.y, 0.0, 1.0)};
}

bool isFinite(double time, Point p) {
    return std::isfinite(time) && std::isfinite(p.x) && std::isfinite(p.y);
}

template <typename T>
void sortByTimestamp(std::vector<T>& values) {
    std::stable_sort(values.begin(), values.end(),
                     [](const T& a, const T& b) { return a.timestamp < b.timestamp; });
}

struct NormalizedClick {
    double timestamp;
    Point position;
    ClickType type;
};

struct NormalizedEvent {
    double timestamp;
    Point position; // already top-left
    double duration;
};

AttentionMoment makeMoment(double timestamp, Point focus, AttentionKind kind, double confidence,
                           double durationHint, double duration) {
    const double time = std::clamp(timestamp, 0.0, duration);
    return {.timestamp = time,
            .focus = clampPoint(focus),
            .kind = kind,
            .confidence = confidence,
            .durationHint = durationHint,
            .supportStart = time,
            .supportEnd = time,
            .isExplicit = true,
            .reasons = {displayName(kind)}};
}

void addReason(AttentionMoment& moment, const QString& reason) {
    if (std::find(moment.reasons.begin(), moment.reasons.end(), reason) == moment.reasons.end())
        moment.reasons.push_back(reason);
}

} // namespace

double normalizedDistance(Point a, Point b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

AttentionAnalyzerResult AttentionAnalyzer::analyze(const AttentionAnalyzerInput& input,
                                                   const AttentionAnalyzerOptions& options) {
    const double duration = input.duration;
    if (!(duration > 0))
        return {};

    // Bad numbers are dropped and the rest brought into the frame and the recording.
    std::vector<NormalizedSample> samples;
    samples.reserve(input.cursorPositions.size());
    for (const CursorPosition& p : input.cursorPositions) {
        if (isFinite(p.timestamp, p.position))
            samples.push_back({std::clamp(p.timestamp, 0.0, duration), clampPoint(p.position)});
    }
    sortByTimestamp(samples);

    std::vector<NormalizedClick> clicks;
    for (const CursorClick& c : input.cursorClicks) {
        if (isFinite(c.timestamp, c.position))
            clicks.push_back(
                {std::clamp(c.timestamp, 0.0, duration), clampPoint(c.position), c.clickType});
    }
    sortByTimestamp(clicks);

    // Live zoom events have their origin at the bottom left: mirror before clamping.
    std::vector<NormalizedEvent> events;
    for (const ZoomEvent& e : input.zoomEvents) {
        if (isFinite(e.timestamp, e.position))
            events.push_back({std::clamp(e.timestamp, 0.0, duration),
                              clampPoint({e.position.x, 1.0 - e.position.y}), e.duration});
    }
    sortByTimestamp(events);

    std::vector<AttentionMoment> moments;
    moments.reserve(events.size() + clicks.size());
    for (const NormalizedEvent& e : events) {
        // A NaN duration falls through both limits to the longest hint, as min/max do elsewhere.
        const double hint =
            std::max(ZoomSegment::minimumDuration, e.duration < 3.0 ? e.duration : 3.0);
        moments.push_back(makeMoment(e.timestamp, e.position, AttentionKind::legacyZoomEvent,
                                     baseConfidence(AttentionKind::legacyZoomEvent), hint,
                                     duration));
    }
    for (const NormalizedClick& c : clicks) {
        const Point focus = interpolatedCursorPosition(c.timestamp, samples).value_or(c.position);
        const AttentionKind kind = classifyClick(c.type, c.timestamp, c.position, samples);
        const double hint = kind == AttentionKind::textSelection ? 1.3 : 1.0;
        moments.push_back(
            makeMoment(c.timestamp, focus, kind, baseConfidence(kind), hint, duration));
    }
    if (std::none_of(moments.begin(), moments.end(),
                     [](const AttentionMoment& m) { return m.isExplicit; }))
        return {};

    moments =
        applyDwellBoosts(std::move(moments), detectDwellCandidates(samples, options), options);
    moments = applyRepeatedRegionBoost(std::move(moments), options);

    std::vector<AttentionMoment> kept;
    for (AttentionMoment& m : moments) {
        if (m.isExplicit && m.confidence >= options.minimumConfidence)
            kept.push_back(std::move(m));
    }
    sortByTimestamp(kept);
    if (kept.empty())
        return {};

    AttentionAnalyzerResult result;
    result.clusters = applyDensityCap(buildClusters(kept, options), duration, options);
    for (const AttentionCluster& cluster : result.clusters) {
        if (auto segment = makeZoomSegment(cluster, duration, input.manualSegments, options))
            result.zoomSegments.push_back(std::move(*segment));
    }
    result.moments = std::move(kept);
    return result;
}

std::optional<Point>
AttentionAnalyzer::interpolatedCursorPosition(double time,
                                              const std::vector<NormalizedSample>& samples) {
    if (samples.empty())
        return std::nullopt;
    if (time <= samples.front().timestamp)
        return samples.front().position;
    if (time >= samples.back().timestamp)
        return samples.back().position;
    auto after =
        std::upper_bound(samples.begin(), samples.end(), time,
                         [](double t, const NormalizedSample& s) { return t < s.timestamp; });
    const NormalizedSample& b = *after;
    const NormalizedSample& a = *(after - 1);
    const double span = b.timestamp - a.timestamp;
    if (span == 0)
        return a.position;
    const double f = (time - a.timestamp) / span;
    return clampPoint({a.position.x + (b.position.x - a.position.x) * f,
                       a.position.y + (b.position.y - a.position.y) * f});
}

// Without knowing what is on screen, the cursor's path in the two seconds after a left click
// tells a text field (it rests: the user types) from a menu (it drops down the screen) from a
// selection (it drags sideways).
AttentionKind AttentionAnalyzer::classifyClick(ClickType type, double time, Point position,
                                               const std::vector<NormalizedSample>& samples) {
    if (type == ClickType::rightClick)
        return AttentionKind::rightClick;
    if (type == ClickType::doubleClick)
        return AttentionKind::doubleClick;

    // The samples with time + 0.1 < t <= time + 2.0; they are sorted, so search for the window.
    const double from = time + 0.1;
    const double to = time + 2.0;
    auto first =
        std::upper_bound(samples.begin(), samples.end(), from,
                         [](double t, const NormalizedSample& s) { return t < s.timestamp; });
    auto last = std::upper_bound(first, samples.end(), to, [](double t, const NormalizedSample& s) {
        return t < s.timestamp;
    });
    if (last - first < 3)
        return AttentionKind::textFieldClick;

    const Point origin = interpolatedCursorPosition(time, samples).value_or(position);
    double sumX = 0, sumY = 0, largest = 0;
    for (auto it = first; it != last; ++it) {
        sumX += std::abs(it->position.x - origin.x);
        sumY += std::abs(it->position.y - origin.y);
        largest = std::max(largest, normalizedDistance(it->position, origin));
    }
    if (largest < 0.02)
        return AttentionKind::textFieldClick;
    const NormalizedSample& end = *(last - 1);
    if (end.position.y - origin.y > 0.03 && sumX * 1.5 < sumY)
        return AttentionKind::dropdownOpen;
    if (sumX > 0.03 && sumY * 1.8 < sumX)
        return AttentionKind::textSelection;
    return AttentionKind::click;
}

// A run ends where the cursor jumps further than a step between neighbouring samples, so a slow
// drift still counts as a rest. Rests longer than the maximum are not dwells but idleness.
std::vector<DwellCandidate>
AttentionAnalyzer::detectDwellCandidates(const std::vector<NormalizedSample>& samples,
                                         const AttentionAnalyzerOptions& options) {
    std::vector<DwellCandidate> candidates;
    if (samples.size() < 2)
        return candidates;
    auto close = [&](std::size_t begin, std::size_t end) {
        if (end - begin < 2)
            return;
        const double duration = samples[end - 1].timestamp - samples[begin].timestamp;
        if (!(duration >= options.dwellMinimumDuration && duration <= options.dwellMaximumDuration))
            return;
        double x = 0, y = 0;
        for (std::size_t i = begin; i < end; ++i) {
            x += samples[i].position.x;
            y += samples[i].position.y;
        }
        const double count = double(std::max<std::size_t>(1, end - begin));
        const double start = samples[begin].timestamp;
        const double stop = samples[end - 1].timestamp;
        candidates.push_back({.startTime = start,
                              .endTime = stop,
                              .centerTime = (start + stop) / 2,
                              .focus = clampPoint({x / count, y / count}),
                              .duration = duration});
    };
    std::size_t runStart = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        if (normalizedDistance(samples[i].position, samples[i - 1].position) >
            options.dwellStepThreshold) {
            close(runStart, i);
            runStart = i;
        }
    }
    close(runStart, samples.size());
    return candidates;
}

std::vector<AttentionMoment>
AttentionAnalyzer::applyDwellBoosts(std::vector<AttentionMoment> moments,
                                    const std::vector<DwellCandidate>& candidates,
                                    const AttentionAnalyzerOptions& options) {
    if (moments.empty() || candidates.empty())
        return moments;
    const double timeScale = std::max(0.001, options.dwellBoostTimeWindow);
    const double distanceScale = std::max(0.001, options.dwellBoostDistance);
    const double range =
        std::max(0.001, options.dwellMaximumDuration - options.dwellMinimumDuration);
    for (const DwellCandidate& candidate : candidates) {
        std::size_t best = 0;
        double bestScore = 0;
        for (std::size_t i = 0; i < moments.size(); ++i) {
            const double score =
                std::abs(candidate.centerTime - moments[i].timestamp) / timeScale +
                normalizedDistance(candidate.focus, moments[i].focus) / distanceScale;
            if (i == 0 || score < bestScore) {
                best = i;
                bestScore = score;
            }
        }
        AttentionMoment& moment = moments[best];
        if (!(std::abs(candidate.centerTime - moment.timestamp) <= options.dwellBoostTimeWindow &&
              normalizedDistance(candidate.focus, moment.focus) <= options.dwellBoostDistance))
            continue;
        // A longer rest is stronger evidence, up to the longest dwell.
        const double r =
            std::clamp((candidate.duration - options.dwellMinimumDuration) / range, 0.0, 1.0);
        moment.confidence += r * 0.35 + 0.25;
        moment.supportStart = std::min(moment.supportStart, candidate.startTime);
        moment.supportEnd = std::max(moment.supportEnd, candidate.endTime);
        addReason(moment, displayName(AttentionKind::dwell));
    }
    return moments;
}

// Coming back to a place within a few seconds confirms it; only the returns are boosted.
std::vector<AttentionMoment>
AttentionAnalyzer::applyRepeatedRegionBoost(std::vector<AttentionMoment> moments,
                                            const AttentionAnalyzerOptions& options) {
    if (moments.size() < 2)
        return moments;
    sortByTimestamp(moments);
    const QString reason = displayName(AttentionKind::repeatedActivity);
    // The earlier moments are walked backwards and the walk stops once they are too old, which
    // finds the same matches as looking at all of them.
    for (std::size_t i = 1; i < moments.size(); ++i) {
        for (std::size_t j = i; j-- > 0;) {
            if (moments[i].timestamp - moments[j].timestamp > options.repeatedRegionWindow)
                break;
            if (normalizedDistance(moments[i].focus, moments[j].focus) <=
                options.repeatedRegionDistance) {
                moments[i].confidence += 0.25;
                addReason(moments[i], reason);
                break;
            }
        }
    }
    return moments;
}

// Near in time is enough to share a zoom; near in place stretches the time allowed.
std::vector<AttentionCluster>
AttentionAnalyzer::buildClusters(std::vector<AttentionMoment> moments,
                                 const AttentionAnalyzerOptions& options) {
    sortByTimestamp(moments);
    std::vector<AttentionCluster> clusters;
    std::vector<AttentionMoment> group;
    for (AttentionMoment& moment : moments) {
        if (!group.empty()) {
            const AttentionMoment& last = group.back();
            const double gap = moment.timestamp - last.timestamp;
            const bool joins =
                gap <= options.rapidActionMergeGap ||
                (gap <= options.clickMergeGap &&
                 normalizedDistance(moment.focus, last.focus) <= options.spatialMergeDistance);
            if (!joins) {
                clusters.push_back(makeCluster(std::move(group)));
                group.clear();
            }
        }
        group.push_back(std::move(moment));
    }
    if (!group.empty())
        clusters.push_back(makeCluster(std::move(group)));
    return clusters;
}

AttentionCluster AttentionAnalyzer::makeCluster(std::vector<AttentionMoment> moments) {
    sortByTimestamp(moments);
    AttentionCluster cluster;
    if (moments.empty()) {
        cluster.focus = {0.5, 0.5};
        return cluster;
    }
    double highest = moments.front().confidence;
    const AttentionMoment* dominant = &moments.front();
    cluster.startTime = moments.front().supportStart;
    cluster.endTime = moments.front().supportEnd;
    QStringList reasons;
    for (const AttentionMoment& m : moments) {
        cluster.confidence += m.confidence;
        highest = std::max(highest, m.confidence);
        // Within the tolerance the later moment wins.
        if (m.confidence > dominant->confidence ||
            std::abs(m.confidence - dominant->confidence) <= confidenceTolerance)
            dominant = &m;
        cluster.startTime = std::min(cluster.startTime, m.supportStart);
        cluster.endTime = std::max(cluster.endTime, m.supportEnd);
        for (const QString& reason : m.reasons) {
            if (!reasons.contains(reason))
                reasons.push_back(reason);
        }
    }
    cluster.kind = dominant->kind;
    cluster.reason = reasons.join(QStringLiteral(" + "));

    // Several moments at the top share the focus, weighted by their confidence.
    std::vector<const AttentionMoment*> top;
    for (const AttentionMoment& m : moments) {
        if (std::abs(m.confidence - highest) <= confidenceTolerance)
            top.push_back(&m);
    }
    if (top.size() == 1) {
        cluster.focus = top.front()->focus;
    } else {
        double x = 0, y = 0, total = 0;
        for (const AttentionMoment* m : top) {
            const double weight = std::max(0.001, m->confidence);
            x += m->focus.x * weight;
            y += m->focus.y * weight;
            total += weight;
        }
        total = std::max(0.001, total);
        cluster.focus = clampPoint({x / total, y / total});
    }
    cluster.moments = std::move(moments);
    return cluster;
}

// At most `zoomsPerMinute` zooms: a zoom that comes too often stops meaning anything. The
// weakest cluster goes first, merged into a neighbour where one is close enough.
std::vector<AttentionCluster>
AttentionAnalyzer::applyDensityCap(std::vector<AttentionCluster> clusters, double duration,
                                   const AttentionAnalyzerOptions& options) {
    auto byStart = [](const AttentionCluster& a, const AttentionCluster& b) {
        return a.startTime < b.startTime;
    };
    const double budget = std::max(1.0, std::ceil(duration / 60.0 * options.zoomsPerMinute));
    std::stable_sort(clusters.begin(), clusters.end(), byStart);
    // Also true for a budget that is not a number, which then caps nothing.
    if (!(budget < double(clusters.size())))
        return clusters;
    std::stable_sort(clusters.begin(), clusters.end(), byStart);
    while (double(clusters.size()) > budget) {
        std::size_t weakest = 0;
        for (std::size_t i = 1; i < clusters.size(); ++i) {
            if (clusters[i].confidence < clusters[weakest].confidence)
                weakest = i;
        }
        const std::optional<std::size_t> neighbor =
            nearestMergeableNeighbor(weakest, clusters, options);
        if (!neighbor) {
            clusters.erase(clusters.begin() + std::ptrdiff_t(weakest));
            continue;
        }
        const std::size_t low = std::min(weakest, *neighbor);
        const std::size_t high = std::max(weakest, *neighbor);
        std::vector<AttentionMoment> moments = std::move(clusters[low].moments);
        for (AttentionMoment& m : clusters[high].moments)
            moments.push_back(std::move(m));
        clusters[low] = makeCluster(std::move(moments));
        clusters.erase(clusters.begin() + std::ptrdiff_t(high));
    }
    std::stable_sort(clusters.begin(), clusters.end(), byStart);
    return clusters;
}

// Either closeness is enough here, whereas clustering asks for both: a cluster about to be
// dropped is better merged into anything related.
std::optional<std::size_t>
AttentionAnalyzer::nearestMergeableNeighbor(std::size_t index,
                                            const std::vector<AttentionCluster>& clusters,
                                            const AttentionAnalyzerOptions& options) {
    const AttentionCluster& cluster = clusters[index];
    std::optional<std::size_t> best;
    double bestDistance = 0;
    for (std::size_t i = 0; i < clusters.size(); ++i) {
        if (i == index)
            continue;
        const AttentionCluster& other = clusters[i];
        const double gap = std::min(std::abs(cluster.startTime - other.endTime),
                                    std::abs(other.startTime - cluster.endTime));
        const double distance = normalizedDistance(cluster.focus, other.focus);
        if (!(gap <= options.clickMergeGap || distance <= options.spatialMergeDistance))
            continue;
        if (!best || distance < bestDistance) {
            best = i;
            bestDistance = distance;
        }
    }
    return best;
}

std::optional<ZoomSegment>
AttentionAnalyzer::makeZoomSegment(const AttentionCluster& cluster, double duration,
                                   const std::vector<ZoomSegment>& manualSegments,
                                   const AttentionAnalyzerOptions& options) {
    double start = std::max(0.0, cluster.startTime - options.preRoll);
    double end = std::min(duration, cluster.endTime + options.postRoll);
    if (end - start < options.minimumSegmentDuration) {
        end = std::min(duration, start + options.minimumSegmentDuration);
        if (end - start < options.minimumSegmentDuration)
            start = std::max(0.0, end - options.minimumSegmentDuration);
    }
    if (end - start > options.maximumSegmentDuration) {
        // Centred on the cluster itself, not on the rolled span.
        const double center = (cluster.startTime + cluster.endTime) / 2;
        start = std::max(0.0, center - options.maximumSegmentDuration / 2);
        end = std::min(duration, start + options.maximumSegmentDuration);
        if (end - start < options.maximumSegmentDuration)
            start = std::max(0.0, end - options.maximumSegmentDuration);
    }
    if (!(start < end))
        return std::nullopt;
    // What the user placed by hand always wins; only bodies count.
    for (const ZoomSegment& manual : manualSegments) {
        if (manual.mode == ZoomSegmentMode::manual &&
            std::max(start, manual.startTime) < std::min(end, manual.endTime))
            return std::nullopt;
    }
    return ZoomSegment({.startTime = start,
                        .endTime = end,
                        .zoomLevel = zoomLevel(cluster, options),
                        .easeIn = 1.0,
                        .easeOut = 0.8,
                        .easing = EasingFunction::easeInOut,
                        .panSmoothing = 0.75,
                        .deadZone = 0.06,
                        .mode = ZoomSegmentMode::auto_,
                        .focusPoint = cluster.focus,
                        .followCursor = true,
                        .autoReason = cluster.reason,
                        .attentionKind = rawValue(cluster.kind)});
}

// Steady work in one place, or a selection, deserves a closer look.
double AttentionAnalyzer::zoomLevel(const AttentionCluster& cluster,
                                    const AttentionAnalyzerOptions& options) {
    if (cluster.kind == AttentionKind::textSelection)
        return options.emphasisZoomLevel;
    double spread = 0;
    for (const AttentionMoment& m : cluster.moments)
        spread = std::max(spread, normalizedDistance(m.focus, cluster.focus));
    if (cluster.moments.size() > 2 && spread <= 0.12)
        return options.emphasisZoomLevel;
    return options.defaultZoomLevel;
}
