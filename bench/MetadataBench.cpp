// Costs of the metadata document on a synthetic recording: 30 Hz cursor samples, 1,200 clicks
// and 50 live zoom events, for 15 minutes, 1 hour and 4 hours. Each figure has a baseline from
// the same run: parsing the same JSON text without building the document, and sorting as many
// doubles as there are samples (the n log n yardstick for the analysis).
#include "BaselineRatioReporter.h"
#include "core/analysis/AttentionAnalyzer.h"
#include "core/metadata/MetadataJson.h"
#include "core/metadata/MetadataRecorder.h"
#include "core/metadata/ZoomMigration.h"

#include <nlohmann/json.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

namespace {

constexpr int clickCount = 1200;
constexpr int eventCount = 50;

// A cursor that wanders, rests now and then, and clicks; deterministic for a given length.
RecordingMetadata syntheticRecording(double seconds) {
    std::mt19937 random(42);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    RecordingMetadata m{.duration = seconds, .resolution = {2880, 1800}, .frameRate = 60};
    const auto samples = std::size_t(seconds * 30);
    m.cursorPositions.reserve(samples);
    Point p{0.5, 0.5};
    for (std::size_t i = 0; i < samples; ++i) {
        if (unit(random) < 0.7) { // moving; otherwise resting
            p.x = std::clamp(p.x + (unit(random) - 0.5) * 0.03, 0.0, 1.0);
            p.y = std::clamp(p.y + (unit(random) - 0.5) * 0.03, 0.0, 1.0);
        }
        m.cursorPositions.push_back(CursorPosition{.timestamp = double(i) / 30.0, .position = p});
    }
    for (int i = 0; i < clickCount; ++i) {
        const double t = (i + unit(random)) * seconds / clickCount;
        const ClickType type = unit(random) < 0.8   ? ClickType::leftClick
                               : unit(random) < 0.5 ? ClickType::doubleClick
                                                    : ClickType::rightClick;
        m.cursorClicks.push_back(CursorClick{
            .timestamp = t, .position = {unit(random), unit(random)}, .clickType = type});
    }
    for (int i = 0; i < eventCount; ++i) {
        const double t = (i + 0.5) * seconds / eventCount;
        m.zoomEvents.push_back(ZoomEvent{
            .timestamp = t, .position = {unit(random), unit(random)}, .level = 2, .duration = 0.8});
    }
    return m;
}

double secondsOf(const benchmark::State& state) {
    return double(state.range(0)) * 60.0;
}

void setSamples(benchmark::State& state, double seconds) {
    state.counters["samples"] = seconds * 30;
}

// The editor's whole load path: text to migrated document with automatic segments.
void BM_DecodeMigrateAnalyze(benchmark::State& state) {
    const std::string text = encodeMetadata(syntheticRecording(secondsOf(state)));
    for (auto _ : state) {
        RecordingMetadata m = migrateZoomMetadata(decodeMetadata(text));
        benchmark::DoNotOptimize(m.zoomSegments.data());
    }
    setSamples(state, secondsOf(state));
    state.counters["MB"] = double(text.size()) / 1e6;
}

void BM_BaselineParseOnly(benchmark::State& state) {
    const std::string text = encodeMetadata(syntheticRecording(secondsOf(state)));
    for (auto _ : state) {
        nlohmann::json j = nlohmann::json::parse(text);
        benchmark::DoNotOptimize(j.size());
    }
    setSamples(state, secondsOf(state));
}

struct NullSax final : nlohmann::json_sax<nlohmann::json> {
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(string_t&) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }
};

// The parser's lexing alone, without building anything: the floor of any nlohmann-based reading.
void BM_BaselineLexOnly(benchmark::State& state) {
    const std::string text = encodeMetadata(syntheticRecording(secondsOf(state)));
    for (auto _ : state) {
        NullSax sax;
        benchmark::DoNotOptimize(nlohmann::json::sax_parse(text, &sax));
    }
    setSamples(state, secondsOf(state));
}

void BM_Encode(benchmark::State& state) {
    const RecordingMetadata m = migrateZoomMetadata(syntheticRecording(secondsOf(state)));
    for (auto _ : state) {
        std::string text = encodeMetadata(m);
        benchmark::DoNotOptimize(text.data());
    }
    setSamples(state, secondsOf(state));
}

void BM_Analyze(benchmark::State& state) {
    const RecordingMetadata m = syntheticRecording(secondsOf(state));
    const AttentionAnalyzerInput input{.duration = m.duration,
                                       .zoomEvents = m.zoomEvents,
                                       .cursorClicks = m.cursorClicks,
                                       .cursorPositions = m.cursorPositions};
    std::size_t segments = 0;
    for (auto _ : state) {
        AttentionAnalyzerResult result = AttentionAnalyzer::analyze(input);
        segments = result.zoomSegments.size();
        benchmark::DoNotOptimize(result.zoomSegments.data());
    }
    setSamples(state, secondsOf(state));
    state.counters["segments"] = double(segments);
}

// n log n yardstick: sorting one double per sample.
void BM_BaselineSortSamples(benchmark::State& state) {
    const RecordingMetadata m = syntheticRecording(secondsOf(state));
    std::vector<double> values;
    std::mt19937 random(7);
    for (std::size_t i = 0; i < m.cursorPositions.size(); ++i)
        values.push_back(std::uniform_real_distribution<double>(0, 1)(random));
    for (auto _ : state) {
        std::vector<double> copy = values;
        std::sort(copy.begin(), copy.end());
        benchmark::DoNotOptimize(copy.data());
    }
    setSamples(state, secondsOf(state));
}

// Four hours at 30 Hz through the recorder: the memory held for samples during the recording
// never exceeds the flush threshold, however long it runs.
void BM_RecorderFourHours(benchmark::State& state) {
    std::size_t peakBuffered = 0;
    std::size_t peakCapacity = 0;
    std::size_t recorded = 0;
    for (auto _ : state) {
        MetadataRecorder recorder({2880, 1800}, 60);
        double now = 0;
        recorder.timeProvider = [&now]() { return std::optional(now); };
        recorder.startRecording(MetadataRecorder::Clock::now());
        const std::size_t total = std::size_t(4 * 3600 * 30);
        for (std::size_t i = 0; i < total; ++i) {
            now = double(i) / 30.0;
            recorder.recordCursorPosition({double(i % 1000) / 1000.0, 0.5});
            peakBuffered = std::max(peakBuffered, recorder.bufferedCursorPositions());
            peakCapacity = std::max(peakCapacity, recorder.cursorBufferCapacity());
        }
        recorder.stopRecording(now);
        recorded = recorder.getCurrentMetadata().cursorPositions.size();
    }
    state.counters["samples"] = double(recorded);
    state.counters["peak_buffered"] = double(peakBuffered);
    state.counters["peak_buffer_KB"] = double(peakCapacity * sizeof(CursorPosition)) / 1024.0;
    state.counters["all_in_memory_KB"] = double(recorded * sizeof(CursorPosition)) / 1024.0;
}

} // namespace

// Arguments are minutes of recording.
BENCHMARK(BM_DecodeMigrateAnalyze)->Arg(15)->Arg(60)->Arg(240)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineParseOnly)->Arg(15)->Arg(60)->Arg(240)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineLexOnly)->Arg(15)->Arg(60)->Arg(240)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Encode)->Arg(15)->Arg(60)->Arg(240)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Analyze)->Arg(15)->Arg(60)->Arg(240)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineSortSamples)->Arg(15)->Arg(60)->Arg(240)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RecorderFourHours)->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    BaselineRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    fmt::print("\nWriting and reading the document, against the JSON parser on the same text:\n");
    for (const char* minutes : {"15", "60", "240"}) {
        const std::string size = std::string("/") + minutes;
        reporter.printRatio(fmt::format("  encode, {:>3} min        ", minutes), "BM_Encode" + size,
                            "lexing it", "BM_BaselineLexOnly" + size);
        reporter.printRatio(fmt::format("  decode+migrate, {:>3} min", minutes),
                            "BM_DecodeMigrateAnalyze" + size, "parsing it",
                            "BM_BaselineParseOnly" + size);
    }
    return 0;
}
