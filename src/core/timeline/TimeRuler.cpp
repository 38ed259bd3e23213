#include "core/timeline/TimeRuler.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

RulerIntervals calculateIntervals(double duration, double availableWidth) {
    constexpr double pointsPerLabel = 50.0;
    constexpr std::array<double, 16> candidates = {1,   2,   5,   10,   15,   30,   60,    120,
                                                   300, 600, 900, 1800, 3600, 7200, 18000, 36000};
    const double labels = std::floor(availableWidth / pointsPerLabel);
    const double maxLabels = std::isfinite(labels) ? std::max(1.0, labels) : 1.0;

    double major = candidates.back();
    for (double candidate : candidates) {
        if (std::floor(duration / candidate) + 1.0 <= maxLabels) {
            major = candidate;
            break;
        }
    }

    double minor = 0.0;
    if (major >= 3600) {
        minor = major / 4.0;
    } else if (major >= 60) {
        minor = major / 6.0;
    } else if (major >= 10) {
        minor = major / 5.0;
    } else if (major >= 5) {
        minor = 1.0;
    }
    return {major, minor};
}

std::string formatTimeAdaptive(double t, double interval) {
    const auto total = std::isfinite(t) ? static_cast<std::int64_t>(t) : std::int64_t{0};
    const auto h = total / 3600;
    const auto m = (total % 3600) / 60;
    const auto s = total % 60;
    if (interval >= 3600) {
        return fmt::format("{}:{:02}:00", h, m);
    }
    if (interval >= 60 && h < 1) {
        return fmt::format("{}:{:02}", m, s);
    }
    if (interval >= 60 || h > 0) {
        return fmt::format("{}:{:02}:{:02}", h, m, s);
    }
    if (m <= 0) {
        return fmt::format("{}s", s);
    }
    return fmt::format("{}:{:02}", m, s);
}
