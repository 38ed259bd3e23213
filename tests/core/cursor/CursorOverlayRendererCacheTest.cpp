#include "core/cursor/CursorOverlayRendererCache.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

std::vector<CursorPosition> samples(std::initializer_list<double> times) {
    std::vector<CursorPosition> result;
    for (double t : times) {
        result.push_back({QUuid::createUuid(), t, {0.5, 0.5}});
    }
    return result;
}

TEST(CursorOverlayRendererCacheTest, ReusesTheRendererForTheSameData) {
    CursorOverlayRendererCache cache;
    const auto start = CursorOverlayRendererCache::Clock::time_point{};
    const auto positions = samples({0.0, 1.0, 2.0});
    const auto first = cache.renderer({}, positions, {}, start);
    // Equal settings and data, even as another copy with fresh ids, give the same renderer.
    EXPECT_EQ(cache.renderer({}, samples({0.0, 1.0, 2.0}), {}, start + 1s), first);

    CursorOverlaySettings other;
    other.scale = 2.0;
    const auto rebuilt = cache.renderer(other, positions, {}, start + 2s);
    EXPECT_NE(rebuilt, first);
    EXPECT_EQ(rebuilt->settings().scale, 2.0);
    EXPECT_NE(cache.renderer(other, samples({0.0, 1.0, 2.5}), {}, start + 3s), rebuilt);
    EXPECT_NE(cache.renderer(other, samples({0.0, 1.0}), {}, start + 3s), rebuilt);
    const auto beforeClick = cache.renderer(other, positions, {}, start + 3s);
    EXPECT_NE(cache.renderer(other, positions,
                             {{QUuid::createUuid(), 1.0, {0.5, 0.5}, ClickType::leftClick}},
                             start + 3s),
              beforeClick);
}

TEST(CursorOverlayRendererCacheTest, StaleRendererIsDroppedAfterAMinute) {
    CursorOverlayRendererCache cache;
    const auto start = CursorOverlayRendererCache::Clock::time_point{};
    cache.renderer({}, samples({0.0}), {}, start);
    cache.clearIfStale(start + 60s); // exactly a minute is not yet stale
    EXPECT_FALSE(cache.isEmpty());
    cache.renderer({}, samples({0.0}), {}, start + 50s); // an access renews it
    cache.clearIfStale(start + 100s);
    EXPECT_FALSE(cache.isEmpty());
    cache.clearIfStale(start + 111s);
    EXPECT_TRUE(cache.isEmpty());
    cache.renderer({}, samples({0.0}), {}, start);
    cache.clearCache();
    EXPECT_TRUE(cache.isEmpty());
}

} // namespace
