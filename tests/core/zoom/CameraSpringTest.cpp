#include "core/zoom/CameraSpring.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

TEST(CameraSpringTest, ConfigurationKeepsTheDampingRatio) {
    // Smoothness 0 acts as 0.01 (mass 0.02, stiffness 5000), 2 as 1 (mass 2, stiffness 50).
    EXPECT_EQ(springConfig(0.0), springConfig(0.01));
    EXPECT_DOUBLE_EQ(springConfig(0.0).stiffness, 5000.0);
    EXPECT_EQ(springConfig(2.0), springConfig(1.0));
    EXPECT_DOUBLE_EQ(springConfig(2.0).mass, 2.0);
    for (double s : {0.01, 0.2, 0.7, 1.0}) {
        const SpringConfig c = springConfig(s);
        EXPECT_NEAR(c.damping / (2.0 * std::sqrt(c.stiffness * c.mass)), 1.05, 1e-12);
    }
}

TEST(CameraSpringTest, ClosedFormMatchesHandValues) {
    // Critical (z = 1, w = 10), from 0 to 1 at rest, t = 0.1: 1 - e^-1 * (1 + 1) = 0.264241.
    EXPECT_NEAR(resolveSpringPosition(1.0, 1.0, 0.0, 10.0, 1.0, 0.1), 0.264241, 1e-6);
    // Under-damped z = 0.6: wd = 8, 1 - e^-0.6 (0.75 sin 0.8 + cos 0.8) = 1 - 0.548812 * 1.234724.
    EXPECT_NEAR(resolveSpringPosition(1.0, 1.0, 0.0, 10.0, 0.6, 0.1), 0.322367, 1e-5);
    // Over-damped z = 1.05, t = 0.08: wd = 3.20156, u = 0.256125, sinh u = 0.258935,
    // cosh u = 1.032979; 1 - e^-0.84 (10.5 sinh u + wd cosh u) / wd = 1 - 0.431711 * 1.882196.
    EXPECT_NEAR(resolveSpringPosition(1.0, 1.0, 0.0, 10.0, 1.05, 0.08), 0.187435, 1e-4);
}

TEST(CameraSpringTest, StepIsLimitedAndFirstStepJumps) {
    const SpringConfig config = springConfig(0.5);
    SpringState fresh;
    EXPECT_EQ(stepSpring(fresh, 7.0, 16.0, config), 7.0);
    EXPECT_EQ(fresh, (SpringState{7.0, 0.0, true}));

    // 500 ms is limited to 80 ms: the same answer as an 80 ms step, 0.187435 as derived above.
    SpringState a{0.0, 0.0, true};
    SpringState b = a;
    const double longStep = stepSpring(a, 1.0, 500.0, config);
    EXPECT_EQ(longStep, stepSpring(b, 1.0, 80.0, config));
    EXPECT_NEAR(longStep, 0.187435, 1e-4);
    EXPECT_GT(a.velocity, 0.0);
}

// The camera must never swing past where it is going: from any start and speed, for every
// smoothness and frame step, a spring heading for a fixed target stays on its side of it.
TEST(CameraSpringTest, NeverOvershoots) {
    std::mt19937 random(42);
    std::uniform_real_distribution<double> position(-2000.0, 2000.0);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int trial = 0; trial < 300; ++trial) {
        const SpringConfig config = springConfig(unit(random));
        const double target = position(random);
        const double start = position(random);
        // Start moving towards the target at up to 20 units a second per unit of distance.
        SpringState s{start, (target - start) * 20.0 * unit(random), true};
        const double stepMs = 1.0 + 79.0 * unit(random);
        const bool below = start <= target;
        for (int i = 0; i < 400; ++i) {
            const double v = stepSpring(s, target, stepMs, config);
            if (below) {
                ASSERT_LE(v, target) << "trial " << trial << " step " << i;
            } else {
                ASSERT_GE(v, target) << "trial " << trial << " step " << i;
            }
        }
    }
}

} // namespace
