#include "core/editing/ZoomKeyframePreview.h"

#include "core/zoom/ZoomEasing.h"

#include <algorithm>

namespace {

constexpr double minimumSpan = 0.0001;

ZoomPreviewState blend(const ZoomPreviewState& from, const ZoomPreviewState& to, double progress) {
    const double e = zoomCubicEaseInOut(std::clamp(progress, 0.0, 1.0));
    return {from.scale + (to.scale - from.scale) * e,
            {from.center.x + (to.center.x - from.center.x) * e,
             from.center.y + (to.center.y - from.center.y) * e}};
}

ZoomPreviewState stateOf(const ZoomKeyframe& keyframe) {
    return {keyframe.level, keyframe.center};
}

} // namespace

ZoomPreviewState previewSegmentedKeyframeState(double time, std::vector<ZoomKeyframe> keyframes) {
    const ZoomPreviewState none;
    if (keyframes.empty()) {
        return none;
    }
    std::stable_sort(keyframes.begin(), keyframes.end(),
                     [](const ZoomKeyframe& a, const ZoomKeyframe& b) { return a.time < b.time; });

    const ZoomKeyframe& first = keyframes.front();
    if (time <= first.time) {
        const double start = first.time - first.easeIn;
        return blend(none, stateOf(first), (time - start) / std::max(minimumSpan, first.easeIn));
    }
    const ZoomKeyframe& last = keyframes.back();
    if (time >= last.time) {
        return blend(stateOf(last), none, (time - last.time) / std::max(minimumSpan, last.easeOut));
    }
    const auto next = std::upper_bound(keyframes.begin(), keyframes.end(), time,
                                       [](double t, const ZoomKeyframe& k) { return t < k.time; });
    const ZoomKeyframe& previous = *(next - 1);
    // Widely spaced keyframes hold their level; the move to the next one takes its ease-in, or
    // the whole gap when that is shorter.
    const double start = std::max(previous.time, next->time - next->easeIn);
    return blend(stateOf(previous), stateOf(*next),
                 (time - start) / std::max(minimumSpan, next->time - start));
}

Point convertBLToTLPreview(Point bottomLeft) {
    return {std::clamp(bottomLeft.x, 0.0, 1.0), std::clamp(1.0 - bottomLeft.y, 0.0, 1.0)};
}
