// The zoom camera runs once per preview and export frame. Figures: ns per `evaluate` with 60
// segments and an hour of cursor samples (108,000 at 30 Hz), for preview and export options,
// and how that grows from 15 minutes to 4 hours of samples. Baseline: one cursor lookup (a
// binary search over the same samples), the least work any evaluation needs.

#include "BaselineRatioReporter.h"
#include "SyntheticCursorPath.h"

#include "core/zoom/ZoomCameraEngine.h"

#include <map>
#include <random>

namespace {

constexpr double sampleRate = 30.0;
constexpr int segmentCount = 60;
const Size renderSize{1920.0, 1080.0};

struct Scene {
    std::vector<ZoomSegment> segments;
    std::vector<CursorPosition> cursor;
    double duration = 0.0;
};

// Segments spread over the whole recording, some following the cursor, some joined by short
// gaps, in shuffled order as the editor may hand them over.
const Scene& scene(std::int64_t samples) {
    static std::map<std::int64_t, Scene> scenes;
    auto [it, inserted] = scenes.try_emplace(samples);
    Scene& s = it->second;
    if (!inserted) {
        return s;
    }
    std::mt19937 random(1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    s.duration = static_cast<double>(samples) / sampleRate;
    s.cursor = randomWalkCursor(samples, sampleRate, random);
    const double slot = s.duration / segmentCount;
    for (int i = 0; i < segmentCount; ++i) {
        ZoomSegment z;
        z.id = QUuid::createUuid();
        z.startTime = i * slot + unit(random) * slot * 0.3;
        z.endTime = z.startTime + std::min(slot * 0.6, 2.0 + unit(random) * 4.0);
        z.zoomLevel = 1.5 + unit(random);
        z.followCursor = i % 2 == 0;
        if (i % 3 == 0) {
            z.focusPoint = Point{unit(random), unit(random)};
        }
        s.segments.push_back(z);
    }
    std::shuffle(s.segments.begin(), s.segments.end(), random);
    return s;
}

void BM_Baseline_CursorLookup(benchmark::State& state) {
    const Scene& s = scene(state.range(0));
    double t = 0.0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ZoomCameraEngine::cursorPosition(t, s.cursor));
        t += 1.0 / 60.0;
        if (t > s.duration) {
            t = 0.0;
        }
    }
}

// Frames in order at 60 Hz, as playback and export evaluate them.
void evaluateInOrder(benchmark::State& state, const ZoomCameraOptions& options) {
    const Scene& s = scene(state.range(0));
    ZoomCameraEngine engine;
    double t = 0.0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.evaluate(t, s.segments, s.cursor, renderSize, options));
        t += 1.0 / 60.0;
        if (t > s.duration) {
            t = 0.0;
        }
    }
}

void BM_EvaluatePreview(benchmark::State& state) {
    evaluateInOrder(state, ZoomCameraOptions::preview());
}

void BM_EvaluateExport(benchmark::State& state) {
    evaluateInOrder(state, ZoomCameraOptions::exportOptions());
}

// Scrubbing: every frame at a random time.
void BM_EvaluateSeek(benchmark::State& state) {
    const Scene& s = scene(state.range(0));
    std::mt19937 random(2);
    std::vector<double> times(4096);
    for (double& t : times) {
        t = std::uniform_real_distribution<double>(0.0, s.duration)(random);
    }
    ZoomCameraEngine engine;
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.evaluate(times[i++ % times.size()], s.segments, s.cursor,
                                                 renderSize, ZoomCameraOptions::preview()));
    }
}

constexpr std::int64_t quarterHour = 27'000;
constexpr std::int64_t hour = 108'000;
constexpr std::int64_t fourHours = 432'000;

BENCHMARK(BM_Baseline_CursorLookup)->Arg(hour);
BENCHMARK(BM_EvaluatePreview)->Arg(quarterHour)->Arg(hour)->Arg(fourHours);
BENCHMARK(BM_EvaluateExport)->Arg(quarterHour)->Arg(hour)->Arg(fourHours);
BENCHMARK(BM_EvaluateSeek)->Arg(hour);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    BaselineRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const std::string base = "BM_Baseline_CursorLookup/108000";
    fmt::print("\nevaluate, 60 segments, 108000 samples (target under 5 us per call):\n");
    reporter.printRatio("  preview, in order", "BM_EvaluatePreview/108000", "cursor lookup", base);
    reporter.printRatio("  export, in order ", "BM_EvaluateExport/108000", "cursor lookup", base);
    reporter.printRatio("  preview, seeking ", "BM_EvaluateSeek/108000", "cursor lookup", base);
    fmt::print("growth from 15 min to 4 h of samples:\n");
    reporter.printRatio("  preview at 4 h", "BM_EvaluatePreview/432000", "at 15 min",
                        "BM_EvaluatePreview/27000");
    reporter.printRatio("  export at 4 h ", "BM_EvaluateExport/432000", "at 15 min",
                        "BM_EvaluateExport/27000");
    benchmark::Shutdown();
    return 0;
}
