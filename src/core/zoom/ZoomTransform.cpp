#include "core/zoom/ZoomTransform.h"

#include <algorithm>

Point clampFocus(Point focus, double scale) {
    const double s = std::max(1.0, scale);
    const double half = 1.0 / (2.0 * s);
    return {std::clamp(focus.x, half, 1.0 - half), std::clamp(focus.y, half, 1.0 - half)};
}

AffineTransform zoomTransform(Point focus, double targetScale, double progress, Size renderSize) {
    const double w = renderSize.width;
    const double h = renderSize.height;
    if (!(w > 0.0) || !(h > 0.0)) {
        return AffineTransform::identity();
    }
    const double p = std::clamp(progress, 0.0, 1.0);
    const double t = std::max(1.0, targetScale);
    const Point f = clampFocus(focus, t);
    const double fx = f.x * w;
    const double fy = f.y * h;
    const double scale = 1.0 + (t - 1.0) * p;
    return {scale, 0.0, 0.0, scale, (w / 2.0 - fx * t) * p, (h / 2.0 - fy * t) * p};
}

Point focusFromTransform(const AffineTransform& transform, double scale, Size renderSize) {
    const double w = renderSize.width;
    const double h = renderSize.height;
    if (!(w > 0.0) || !(h > 0.0) || !(scale > 0.0)) {
        return {0.5, 0.5};
    }
    const Point focus{(w / 2.0 - transform.tx) / (w * scale),
                      (h / 2.0 - transform.ty) / (h * scale)};
    return clampFocus(focus, std::max(1.0, scale));
}
