#include "core/zoom/CameraSpring.h"

#include <algorithm>
#include <cmath>

SpringConfig springConfig(double smoothness) {
    const double s = std::clamp(smoothness, 0.01, 1.0);
    SpringConfig config;
    config.mass = 2.0 * s;
    config.stiffness = 100.0 / (2.0 * s);
    config.damping = 21.0;
    config.restDelta = 0.0005;
    config.restSpeed = 0.015;
    return config;
}

double resolveSpringPosition(double target, double d0, double iv, double w, double z, double t) {
    if (z < 1.0) {
        const double wd = w * std::sqrt(1.0 - z * z);
        return target - std::exp(-z * w * t) *
                            ((iv + z * w * d0) / wd * std::sin(wd * t) + d0 * std::cos(wd * t));
    }
    if (std::abs(z - 1.0) < 0.0001) {
        return target - std::exp(-w * t) * (d0 + (iv + w * d0) * t);
    }
    const double wd = w * std::sqrt(z * z - 1.0);
    // sinh and cosh overflow long before exp(-z w t) underflows; the cap keeps the product finite.
    const double u = std::min(wd * t, 300.0);
    return target -
           std::exp(-z * w * t) * ((iv + z * w * d0) * std::sinh(u) + wd * d0 * std::cosh(u)) / wd;
}

double stepSpring(SpringState& state, double target, double deltaMs, const SpringConfig& config) {
    const double stepMs = std::clamp(deltaMs, 1.0, 80.0);
    if (!state.initialized || !std::isfinite(state.value)) {
        state = {target, 0.0, true};
        return target;
    }
    if (std::abs(target - state.value) <= config.restDelta &&
        std::abs(state.velocity) <= config.restSpeed) {
        state.value = target;
        state.velocity = 0.0;
    }

    const double t = stepMs / 1000.0;
    const double w = std::sqrt(config.stiffness / config.mass);
    const double z = config.damping / (2.0 * std::sqrt(config.stiffness * config.mass));
    const double d0 = target - state.value;
    const double iv = -state.velocity;

    const double position = resolveSpringPosition(target, d0, iv, w, z, t);
    const bool crossed = (state.value <= target && position > target) ||
                         (state.value >= target && position < target);
    if (z >= 1.0 && crossed) {
        state.value = target;
        state.velocity = 0.0;
        return target;
    }

    constexpr double probe = 0.0001;
    const double velocity =
        (resolveSpringPosition(target, d0, iv, w, z, t + probe) - position) / probe;
    if (std::abs(position - target) <= config.restDelta && std::abs(velocity) <= config.restSpeed) {
        state.value = target;
        state.velocity = 0.0;
        return target;
    }
    state.value = position;
    state.velocity = velocity;
    return position;
}
