#include "core/cursor/CursorOverlayRenderer.h"

#include "core/zoom/CursorPathSmoothing.h"
#include "core/zoom/ZoomEasing.h"

#include <algorithm>
#include <cmath>

namespace {

// Timestamps this close are one instant.
constexpr double sameInstant = 0.000001;
// Samples closer than this are not interpolated, so that a duplicated sample cannot divide by
// almost nothing.
constexpr double interpolationGap = 0.0001;
// Velocity is the central difference over one frame at 60 Hz either side.
constexpr double velocityHalfWindow = 1.0 / 60.0;
// The click animation: its length and how far the cursor shrinks. Fixed, whatever the
// settings' click scale and duration say; the drawn cursor has always clicked like this.
constexpr double clickAnimationDuration = 0.5;
constexpr double clickShrinkDepth = 0.25;
// Near a click the smoothing lets go, so that the path reaches the click without a bend.
constexpr double clickInfluence = 0.1;
constexpr double clickHalfLifeShare = 0.8;
constexpr double halfLifeAtClick = 0.01;

template <typename Sample>
Point interpolatePosition(double time, const std::vector<Sample>& samples) {
    if (samples.empty()) {
        return {0.5, 0.5};
    }
    if (time <= samples.front().timestamp) {
        return samples.front().position;
    }
    if (time >= samples.back().timestamp) {
        return samples.back().position;
    }
    const auto after = std::upper_bound(samples.begin(), samples.end(), time,
                                        [](double t, const Sample& s) { return t < s.timestamp; });
    const Sample& next = *after;
    const Sample& previous = *(after - 1);
    const double span = next.timestamp - previous.timestamp;
    if (span <= interpolationGap) {
        return previous.position;
    }
    const double f = (time - previous.timestamp) / span;
    return {previous.position.x + (next.position.x - previous.position.x) * f,
            previous.position.y + (next.position.y - previous.position.y) * f};
}

template <typename Element>
void sortByTimestamp(std::vector<Element>& elements) {
    auto earlier = [](const Element& a, const Element& b) { return a.timestamp < b.timestamp; };
    if (!std::is_sorted(elements.begin(), elements.end(), earlier)) {
        std::stable_sort(elements.begin(), elements.end(), earlier);
    }
}

} // namespace

CursorOverlayRenderer::CursorOverlayRenderer(CursorOverlaySettings settings,
                                             std::vector<CursorPosition> cursorPositions,
                                             std::vector<CursorClick> clickEvents)
    : m_settings(settings), m_cursorPositions(std::move(cursorPositions)),
      m_clickEvents(std::move(clickEvents)) {
    sortByTimestamp(m_cursorPositions);
    sortByTimestamp(m_clickEvents);
    mergeClickAnchors();
}

std::int64_t CursorOverlayRenderer::timestampKey(double time) {
    return std::llround(time * 1'000'000.0);
}

void CursorOverlayRenderer::mergeClickAnchors() {
    std::vector<std::int64_t> sampleKeys;
    sampleKeys.reserve(m_cursorPositions.size());
    for (const CursorPosition& p : m_cursorPositions) {
        sampleKeys.push_back(timestampKey(p.timestamp)); // in order, as the samples are
    }

    const std::size_t originalCount = m_cursorPositions.size();
    // The clicks are sorted, so their keys come in order and a repeat is always the previous one:
    // a second click in the same microsecond anchors nothing new.
    m_pinnedTimestampKeys.reserve(m_clickEvents.size());
    for (const CursorClick& click : m_clickEvents) {
        const std::int64_t key = timestampKey(click.timestamp);
        if (!m_pinnedTimestampKeys.empty() && m_pinnedTimestampKeys.back() == key) {
            continue;
        }
        m_pinnedTimestampKeys.push_back(key);
        if (!std::binary_search(sampleKeys.begin(), sampleKeys.end(), key)) {
            m_cursorPositions.push_back({QUuid::createUuid(), click.timestamp, click.position});
        }
    }
    if (m_cursorPositions.size() == originalCount) {
        return;
    }
    // Instants within a microsecond are ordered by their keys. The samples are sorted already,
    // so only the added anchors need sorting, and a stable merge keeps a recorded sample ahead of
    // an anchor with the same key.
    auto earlier = [](const CursorPosition& a, const CursorPosition& b) {
        if (std::abs(a.timestamp - b.timestamp) <= sameInstant) {
            return timestampKey(a.timestamp) < timestampKey(b.timestamp);
        }
        return a.timestamp < b.timestamp;
    };
    const auto added = m_cursorPositions.begin() + static_cast<std::ptrdiff_t>(originalCount);
    std::stable_sort(added, m_cursorPositions.end(), earlier);
    std::inplace_merge(m_cursorPositions.begin(), added, m_cursorPositions.end(), earlier);
}

CursorState CursorOverlayRenderer::cursorState(double time) const {
    if (m_cursorPositions.empty()) {
        return CursorState::hidden();
    }
    CursorState state;
    state.position = m_settings.smoothing > 0.0 ? interpolatePosition(time, smoothedPositions())
                                                : interpolatePosition(time, m_cursorPositions);
    state.velocity = calculateVelocity(time);
    const double clickFactor = clickAnimationScale(time);
    state.isVisible = state.position.x >= 0.0 && state.position.x <= 1.0 &&
                      state.position.y >= 0.0 && state.position.y <= 1.0;
    state.scale = m_settings.scale * clickFactor;
    state.motionBlurAmount = calculateMotionBlurAmount(state.velocity);
    return state;
}

Point CursorOverlayRenderer::calculateVelocity(double time) const {
    const Point before = interpolatePosition(time - velocityHalfWindow, m_cursorPositions);
    const Point after = interpolatePosition(time + velocityHalfWindow, m_cursorPositions);
    const double window = 2.0 * velocityHalfWindow;
    return {(after.x - before.x) / window, (after.y - before.y) / window};
}

double CursorOverlayRenderer::calculateMotionBlurAmount(Point velocity) const {
    if (!m_settings.motionBlurEnabled) {
        return 0.0;
    }
    const double speed = std::hypot(velocity.x, velocity.y);
    const double threshold = m_settings.motionBlurThreshold;
    if (!(speed > threshold)) {
        return 0.0;
    }
    const double u = std::min(1.0, (speed - threshold) / (threshold * 2.0));
    return u * u * m_settings.motionBlurIntensity;
}

double CursorOverlayRenderer::clickAnimationScale(double time) const {
    const auto after =
        std::upper_bound(m_clickEvents.begin(), m_clickEvents.end(), time,
                         [](double t, const CursorClick& c) { return t < c.timestamp; });
    if (after == m_clickEvents.begin()) {
        return 1.0;
    }
    const double elapsed = time - (after - 1)->timestamp;
    if (elapsed >= clickAnimationDuration) {
        return 1.0;
    }
    return 1.0 - clickShrinkDepth * smoothShrinkEase(elapsed / clickAnimationDuration);
}

double CursorOverlayRenderer::smoothShrinkEase(double p) {
    if (p <= 0.0 || p >= 1.0) {
        return 0.0;
    }
    if (p < 0.3) {
        const double q = p / 0.3;
        return q * (2.0 - q);
    }
    const double q = (p - 0.3) / 0.7;
    return 1.0 - q * q;
}

double CursorOverlayRenderer::cinematicEase(double p) {
    return zoomCubicEaseInOut(p);
}

const std::vector<CursorOverlayRenderer::PathPoint>&
CursorOverlayRenderer::smoothedPositions() const {
    std::call_once(m_smoothedOnce, [this] { m_smoothedPositions = applySmoothingToPositions(); });
    return m_smoothedPositions;
}

std::vector<CursorOverlayRenderer::PathPoint>
CursorOverlayRenderer::applySmoothingToPositions() const {
    std::vector<PathPoint> result;
    result.reserve(m_cursorPositions.size());
    for (const CursorPosition& p : m_cursorPositions) {
        result.push_back({p.timestamp, p.position});
    }
    if (m_cursorPositions.size() < 2 || !(m_settings.smoothing > 0.0)) {
        return result;
    }
    // Each stretch between two clicks is smoothed on its own, so that no smoothing reaches
    // across a click and pulls the path off it. Samples and pinned keys are both in order, so
    // one walk finds the pins.
    auto pin = m_pinnedTimestampKeys.begin();
    auto isPinnedInOrder = [&](double timestamp) {
        const std::int64_t key = timestampKey(timestamp);
        while (pin != m_pinnedTimestampKeys.end() && *pin < key) {
            ++pin;
        }
        return pin != m_pinnedTimestampKeys.end() && *pin == key;
    };
    std::size_t first = 0;
    bool firstPinned = isPinnedInOrder(m_cursorPositions.front().timestamp);
    for (std::size_t i = 1; i < m_cursorPositions.size(); ++i) {
        const bool pinned = isPinnedInOrder(m_cursorPositions[i].timestamp);
        if (pinned || i + 1 == m_cursorPositions.size()) {
            applyBidirectionalSmoothing(first, i, firstPinned, pinned, result);
            first = i;
            firstPinned = pinned;
        }
    }
    return result;
}

void CursorOverlayRenderer::applyBidirectionalSmoothing(std::size_t first, std::size_t last,
                                                        bool firstPinned, bool lastPinned,
                                                        std::vector<PathPoint>& result) const {
    if (last <= first) {
        return;
    }
    const std::vector<CursorPosition>& raw = m_cursorPositions;
    const double h = halfLife(m_settings.animationSpeed) * m_settings.smoothing;
    auto effectiveHalfLife = [&](std::size_t i) {
        double nearest = clickInfluence;
        if (firstPinned) {
            nearest = std::min(nearest, raw[i].timestamp - raw[first].timestamp);
        }
        if (lastPinned) {
            nearest = std::min(nearest, raw[last].timestamp - raw[i].timestamp);
        }
        const double f = (1.0 - nearest / clickInfluence) * clickHalfLifeShare;
        return h * (1.0 - f) + halfLifeAtClick * f;
    };
    auto follow = [](Point from, Point to, double alpha) {
        return Point{from.x + (to.x - from.x) * alpha, from.y + (to.y - from.y) * alpha};
    };

    const std::size_t count = last - first + 1;
    std::vector<Point> forward(count);
    std::vector<Point> backward(count);
    forward[0] = raw[first].position;
    for (std::size_t k = 1; k < count; ++k) {
        const std::size_t i = first + k;
        const double dt = std::max(0.001, raw[i].timestamp - raw[i - 1].timestamp);
        forward[k] =
            follow(forward[k - 1], raw[i].position, smoothingAlpha(dt, effectiveHalfLife(i)));
    }
    backward[count - 1] = raw[last].position;
    for (std::size_t k = count - 1; k-- > 0;) {
        const std::size_t i = first + k;
        const double dt = std::max(0.001, raw[i + 1].timestamp - raw[i].timestamp);
        backward[k] =
            follow(backward[k + 1], raw[i].position, smoothingAlpha(dt, effectiveHalfLife(i)));
    }
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t i = first + k;
        const bool keepExact = (k == 0 && firstPinned) || (k + 1 == count && lastPinned);
        result[i].position = keepExact ? raw[i].position
                                       : Point{(forward[k].x + backward[k].x) / 2.0,
                                               (forward[k].y + backward[k].y) / 2.0};
    }
}
