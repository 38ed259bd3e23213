// The cursor overlay smooths the whole path once per renderer and then answers per frame.
// Figures: construction with the smoothing pass for an hour of samples (108,000 at 30 Hz) and
// 1,200 clicks, against a copy of the same samples; `cursorState(at:)` against one binary
// search over them; and how both grow from 15 minutes to 4 hours.

#include "BaselineRatioReporter.h"
#include "SyntheticCursorPath.h"

#include "core/cursor/CursorOverlayRenderer.h"

#include <map>
#include <random>

namespace {

constexpr double sampleRate = 30.0;
// 1,200 clicks an hour.
constexpr std::int64_t samplesPerClick = 90;

struct Recording {
    std::vector<CursorPosition> positions;
    std::vector<CursorClick> clicks;
    double duration = 0.0;
};

const Recording& recording(std::int64_t samples) {
    static std::map<std::int64_t, Recording> recordings;
    auto [it, inserted] = recordings.try_emplace(samples);
    Recording& r = it->second;
    if (!inserted) {
        return r;
    }
    std::mt19937 random(1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    r.duration = static_cast<double>(samples) / sampleRate;
    r.positions = randomWalkCursor(samples, sampleRate, random);
    // Half the clicks on samples, as the recorder makes them; half in between.
    for (std::int64_t c = 0; c < samples / samplesPerClick; ++c) {
        const auto& on =
            r.positions[static_cast<std::size_t>(unit(random) * static_cast<double>(samples - 1))];
        const double t = c % 2 == 0 ? on.timestamp : unit(random) * r.duration;
        r.clicks.push_back({QUuid(), t, on.position, ClickType::leftClick});
    }
    return r;
}

void BM_Baseline_CopySamples(benchmark::State& state) {
    const Recording& r = recording(state.range(0));
    for (auto _ : state) {
        std::vector<CursorPosition> copy = r.positions;
        benchmark::DoNotOptimize(copy.data());
    }
}

void BM_Construction(benchmark::State& state) {
    const Recording& r = recording(state.range(0));
    for (auto _ : state) {
        CursorOverlayRenderer renderer(CursorOverlaySettings::defaults(), r.positions, r.clicks);
        benchmark::DoNotOptimize(renderer.smoothedPositions().data());
    }
}

void BM_Baseline_BinarySearch(benchmark::State& state) {
    const Recording& r = recording(state.range(0));
    double t = 0.0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            std::upper_bound(r.positions.begin(), r.positions.end(), t,
                             [](double v, const CursorPosition& p) { return v < p.timestamp; }));
        t += 1.0 / 60.0;
        if (t > r.duration) {
            t = 0.0;
        }
    }
}

void BM_CursorState(benchmark::State& state) {
    const Recording& r = recording(state.range(0));
    const CursorOverlayRenderer renderer(CursorOverlaySettings::defaults(), r.positions, r.clicks);
    renderer.smoothedPositions();
    double t = 0.0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(renderer.cursorState(t));
        t += 1.0 / 60.0;
        if (t > r.duration) {
            t = 0.0;
        }
    }
}

constexpr std::int64_t quarterHour = 27'000;
constexpr std::int64_t hour = 108'000;
constexpr std::int64_t fourHours = 432'000;

BENCHMARK(BM_Baseline_CopySamples)->Arg(hour)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Construction)
    ->Arg(quarterHour)
    ->Arg(hour)
    ->Arg(fourHours)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Baseline_BinarySearch)->Arg(hour);
BENCHMARK(BM_CursorState)->Arg(quarterHour)->Arg(hour)->Arg(fourHours);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    BaselineRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    fmt::print("\n108000 samples, 1200 clicks:\n");
    reporter.printRatio("  construction with smoothing (target under 60 ms)",
                        "BM_Construction/108000", "copying the samples",
                        "BM_Baseline_CopySamples/108000");
    reporter.printRatio("  cursorState (target under 2 us)", "BM_CursorState/108000",
                        "one binary search", "BM_Baseline_BinarySearch/108000");
    fmt::print("growth from 15 min to 4 h of samples (16 x the samples):\n");
    reporter.printRatio("  construction at 4 h", "BM_Construction/432000", "at 15 min",
                        "BM_Construction/27000");
    reporter.printRatio("  cursorState at 4 h ", "BM_CursorState/432000", "at 15 min",
                        "BM_CursorState/27000");
    benchmark::Shutdown();
    return 0;
}
