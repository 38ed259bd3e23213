#include "core/zoom/ZoomEasing.h"

#include <algorithm>
#include <cmath>

double zoomCubicEaseInOut(double p) {
    p = std::clamp(p, 0.0, 1.0);
    if (p < 0.5) {
        return 16.0 * p * p * p * p * p;
    }
    return 1.0 - std::pow(2.0 - 2.0 * p, 5.0) / 2.0;
}

namespace {

double bezierComponent(double p1, double p2, double u) {
    const double v = 1.0 - u;
    return 3.0 * p1 * v * v * u + 3.0 * p2 * v * u * u + u * u * u;
}

double bezierSlope(double p1, double p2, double u) {
    const double v = 1.0 - u;
    return 3.0 * p1 * v * v + 6.0 * (p2 - p1) * v * u + 3.0 * (1.0 - p2) * u * u;
}

} // namespace

double cubicBezier(double x1, double y1, double x2, double y2, double t) {
    constexpr double epsilon = 0.000001;
    t = std::clamp(t, 0.0, 1.0);

    // Newton converges in a few steps on well-behaved curves; bisection is the safety net for
    // flat spots where the slope vanishes.
    double u = t;
    for (int i = 0; i < 8; ++i) {
        const double error = bezierComponent(x1, x2, u) - t;
        const double slope = bezierSlope(x1, x2, u);
        if (std::abs(error) < epsilon || std::abs(slope) < epsilon) {
            break;
        }
        u -= error / slope;
    }
    u = std::clamp(u, 0.0, 1.0);

    double lo = 0.0;
    double hi = 1.0;
    for (int i = 0; i < 10; ++i) {
        const double x = bezierComponent(x1, x2, u);
        if (std::abs(x - t) < epsilon) {
            break;
        }
        if (x < t) {
            lo = u;
        } else {
            hi = u;
        }
        u = (lo + hi) / 2.0;
    }
    return bezierComponent(y1, y2, u);
}
