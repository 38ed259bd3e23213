#include "core/zoom/CursorPathSmoothing.h"

#include <algorithm>
#include <cmath>

namespace {

double distance(Point a, Point b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

Point moveTowards(Point from, Point to, double alpha) {
    return {from.x + (to.x - from.x) * alpha, from.y + (to.y - from.y) * alpha};
}

// How fast a movement counts as deliberate: at this speed (normalised units per second) and
// above, the path reacts with its shortest wait and lag.
constexpr double fastSpeed = 0.35;

} // namespace

double smoothingAlpha(double dt, double halfLife) {
    if (!(halfLife > 0.0)) {
        return 1.0;
    }
    return std::clamp(1.0 - std::exp2(-dt / halfLife), 0.0, 1.0); // 1 - 0.5^(dt / halfLife)
}

std::vector<Point> focusClusters(const std::vector<CursorPosition>& positions, double radius) {
    std::vector<Point> centers;
    if (positions.size() < 3 || !(radius > 0.0)) {
        centers.reserve(positions.size());
        for (const CursorPosition& p : positions) {
            centers.push_back(p.position);
        }
        return centers;
    }
    std::vector<double> counts;
    for (const CursorPosition& p : positions) {
        auto joined = std::find_if(centers.begin(), centers.end(),
                                   [&](Point c) { return distance(c, p.position) <= radius; });
        if (joined == centers.end()) {
            centers.push_back(p.position);
            counts.push_back(1.0);
            continue;
        }
        const auto index = static_cast<std::size_t>(joined - centers.begin());
        const double n = counts[index] + 1.0;
        joined->x += (p.position.x - joined->x) / n;
        joined->y += (p.position.y - joined->y) / n;
        counts[index] = n;
    }
    return centers;
}

std::optional<std::size_t> nearestClusterIndex(Point point, const std::vector<Point>& centers) {
    std::optional<std::size_t> nearest;
    double best = 0.0;
    for (std::size_t i = 0; i < centers.size(); ++i) {
        const double d = distance(point, centers[i]);
        if (!nearest || d < best) {
            nearest = i;
            best = d;
        }
    }
    return nearest;
}

std::vector<CursorPosition> smoothCursorPositions(const std::vector<CursorPosition>& positions,
                                                  const ZoomSegment& segment) {
    if (positions.size() < 2 || !(segment.panSmoothing > 0.0)) {
        return positions;
    }
    const double h = 0.03 + segment.panSmoothing * 0.27;
    const double d = std::max(0.0001, segment.deadZone);
    const double outerZone = d * 1.35;
    const double clusterRadius = std::max(0.05, d * 1.6);

    const std::vector<Point> clusters = focusClusters(positions, clusterRadius);
    std::optional<std::size_t> active = nearestClusterIndex(positions.front().position, clusters);
    std::optional<std::size_t> pending;
    double pendingSince = 0.0;

    Point anchor = positions.front().position;
    Point target = anchor;
    Point output = anchor;
    std::vector<CursorPosition> result;
    result.reserve(positions.size());
    result.push_back(positions.front());

    for (std::size_t i = 1; i < positions.size(); ++i) {
        const CursorPosition& sample = positions[i];
        const Point p = sample.position;
        const double dt = std::max(0.001, sample.timestamp - positions[i - 1].timestamp);
        const double speed = distance(p, positions[i - 1].position) / dt;
        const double urgency = std::min(1.0, speed / fastSpeed);

        if (clusters.empty()) {
            if (distance(target, p) >= outerZone) {
                target = p;
            } else {
                target = moveTowards(target, p,
                                     std::min(0.12, smoothingAlpha(dt, std::max(0.03, h * 0.9))));
            }
        } else {
            // The camera changes its resting place only after the cursor has settled near
            // another one for a moment; a cursor passing through does not drag it along.
            const double fromAnchor = distance(p, anchor);
            const auto nearest = nearestClusterIndex(p, clusters);
            if (fromAnchor <= d || fromAnchor < outerZone || nearest == active) {
                pending.reset();
            } else {
                if (pending != nearest) {
                    pending = nearest;
                    pendingSince = sample.timestamp;
                }
                const double w = std::max(0.12, std::min(0.5, d * 3.0));
                const double wait = std::max(0.06, w * (1.0 - 0.6 * urgency));
                if (sample.timestamp - pendingSince >= wait) {
                    active = pending;
                    pending.reset();
                }
            }
            const Point center = clusters[*active];
            const double toCenter = distance(anchor, center);
            if (toCenter > d) {
                const double step = std::min(toCenter * 0.18, d * 0.45);
                anchor = moveTowards(anchor, center, step / toCenter);
            }
            target = moveTowards(target, anchor, smoothingAlpha(dt, std::max(0.02, h * 0.55)));
        }

        output = moveTowards(output, target,
                             smoothingAlpha(dt, std::max(0.015, h * (1.0 - 0.6 * urgency))));
        result.push_back({QUuid::createUuid(), sample.timestamp, output});
    }
    return result;
}

std::vector<CursorPosition> applySecondPassSmoothing(const std::vector<CursorPosition>& positions,
                                                     double halfLife) {
    if (positions.size() <= 2) {
        return positions;
    }
    std::vector<CursorPosition> result = positions;
    for (std::size_t i = 1; i < result.size(); ++i) {
        const double dt = std::max(0.001, positions[i].timestamp - positions[i - 1].timestamp);
        result[i].position = moveTowards(result[i - 1].position, positions[i].position,
                                         smoothingAlpha(dt, halfLife));
    }
    return result;
}
