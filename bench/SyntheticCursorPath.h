#pragma once

#include "core/metadata/CursorPosition.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

// A cursor that wanders by small random steps from the centre, one sample per 1/sampleRate s:
// the cursor data of a long synthetic recording. Draws from `random`, so callers that go on
// drawing get the same sequence as before.
inline std::vector<CursorPosition> randomWalkCursor(std::int64_t samples, double sampleRate,
                                                    std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<CursorPosition> positions;
    positions.reserve(static_cast<std::size_t>(samples));
    Point p{0.5, 0.5};
    for (std::int64_t i = 0; i < samples; ++i) {
        p.x = std::clamp(p.x + (unit(random) - 0.5) * 0.02, 0.0, 1.0);
        p.y = std::clamp(p.y + (unit(random) - 0.5) * 0.02, 0.0, 1.0);
        positions.push_back({QUuid(), static_cast<double>(i) / sampleRate, p});
    }
    return positions;
}
