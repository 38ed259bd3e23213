#pragma once

#include "core/geometry/Rect.h"

// A 2-D affine transform in the row-vector convention of the drawing code:
// x' = a x + c y + tx, y' = b x + d y + ty. The zoom camera hands one to preview and export,
// which apply it to the screen picture, so both sides must read the six numbers alike.
struct AffineTransform {
    double a = 1.0;
    double b = 0.0;
    double c = 0.0;
    double d = 1.0;
    double tx = 0.0;
    double ty = 0.0;

    static constexpr AffineTransform identity() { return {}; }
    constexpr bool isIdentity() const { return *this == identity(); }

    constexpr Point apply(Point p) const {
        return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty};
    }

    // Component-wise blend, `t` 0 giving `from` and 1 giving `to`.
    static constexpr AffineTransform interpolate(const AffineTransform& from,
                                                 const AffineTransform& to, double t) {
        auto mix = [t](double x, double y) { return x + (y - x) * t; };
        return {mix(from.a, to.a), mix(from.b, to.b),   mix(from.c, to.c),
                mix(from.d, to.d), mix(from.tx, to.tx), mix(from.ty, to.ty)};
    }

    constexpr bool operator==(const AffineTransform&) const = default;
};
