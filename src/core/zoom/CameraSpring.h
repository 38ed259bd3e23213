#pragma once

// A critically damped (slightly over-damped) spring in closed form. Each step evaluates the
// analytic solution at the elapsed time instead of integrating, so towards a steady target the
// camera moves along the same curve whatever the frame rate, and a long step cannot blow up.
// Pure functions; the state belongs to the caller. Thread-safe.

struct SpringState {
    double value = 0.0;
    double velocity = 0.0;
    bool initialized = false;
    bool operator==(const SpringState&) const = default;
};

struct SpringConfig {
    double stiffness = 100.0;
    double damping = 21.0;
    double mass = 1.0;
    double restDelta = 0.0005;
    double restSpeed = 0.015;
    bool operator==(const SpringConfig&) const = default;
};

// Softer springs for a higher `smoothness` (clamped to 0.01 ... 1). Stiffness times mass stays
// 100, so the damping ratio is 1.05 at every setting: the camera only gets slower, it never
// overshoots.
SpringConfig springConfig(double smoothness);

// Position at `t` seconds of a spring released at `target - d0` with velocity `-iv`, for the
// angular frequency `w` and damping ratio `z`.
double resolveSpringPosition(double target, double d0, double iv, double w, double z, double t);

// Advances `state` towards `target` by `deltaMs` (limited to 1 ... 80 ms so that a stalled
// frame cannot fling the camera) and returns the new value. An uninitialised state jumps.
double stepSpring(SpringState& state, double target, double deltaMs, const SpringConfig& config);
