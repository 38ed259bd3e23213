// The cursor overlay smooths the whole path once per renderer and then answers per frame.
// Figures: construction with the smoothing pass for an hour of samples (108,000 at 30 Hz) and
// 1,200 clicks, against a copy of the same samples; `cursorState(at:)` against one binary
// search over them; and how both grow from 15 minutes to 4 hours.
// The live magnifier, on a private Xvfb of 1920x1080 with a dozen windows (skipped without
// Xvfb): one round of it (where the pointer is, the screen under the magnifier without the
// program's windows, scaled three times into the magnifier's picture) against one round of the
// overlays without it (where the pointer is).

#include "BaselineRatioReporter.h"
#include "SyntheticCursorPath.h"

#include "core/cursor/CursorOverlayRenderer.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11MagnifierSource.h"

#include <xcb/xtest.h>

#include <QImage>
#include <QPainter>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

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

// A private X server with twelve windows over each other, and the pointer amid them.
class Desktop {
public:
    Desktop() {
        int number = 230;
        while (std::filesystem::exists(fmt::format("/tmp/.X11-unix/X{}", number)) ||
               std::filesystem::exists(fmt::format("/tmp/.X{}-lock", number)))
            ++number;
        const std::string display = fmt::format(":{}", number);
        m_server = fork();
        if (m_server == 0) {
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
            execlp("Xvfb", "Xvfb", display.c_str(), "-screen", "0", "1920x1080x24", "-nolisten",
                   "tcp", "-noreset", static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int i = 0;
             i < 100 && !std::filesystem::exists(fmt::format("/tmp/.X11-unix/X{}", number)); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        setenv("DISPLAY", display.c_str(), 1);
        try {
            connection = std::make_unique<X11Connection>();
        } catch (const std::exception&) {
            return;
        }
        xcb_connection_t* c = connection->get();
        for (uint32_t i = 0; i < 12; ++i) {
            const xcb_window_t window = xcb_generate_id(c);
            const uint32_t colour = 0x203040 + i * 0x0a0b0c;
            xcb_create_window(c, XCB_COPY_FROM_PARENT, window, connection->root(),
                              int16_t(700 + 40 * (i % 4)), int16_t(350 + 30 * (i / 4)), 400, 300, 1,
                              XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                              XCB_CW_BACK_PIXEL, &colour);
            xcb_map_window(c, window);
        }
        xcb_test_fake_input(c, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, connection->root(), 960, 540,
                            0);
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    }
    ~Desktop() {
        connection.reset();
        if (m_server > 0) {
            kill(m_server, SIGTERM);
            waitpid(m_server, nullptr, 0);
        }
    }
    std::unique_ptr<X11Connection> connection;

private:
    pid_t m_server = -1;
};

Desktop* desktop() {
    static std::unique_ptr<Desktop> shared = [] {
        if (std::system("command -v Xvfb >/dev/null 2>&1") != 0)
            return std::unique_ptr<Desktop>();
        auto made = std::make_unique<Desktop>();
        return made->connection ? std::move(made) : std::unique_ptr<Desktop>();
    }();
    return shared.get();
}

// Where the pointer is: what the overlays ask the server at each tick anyway.
xcb_query_pointer_reply_t* queryPointer(const X11Connection& connection) {
    xcb_connection_t* c = connection.get();
    return xcb_query_pointer_reply(c, xcb_query_pointer(c, connection.root()), nullptr);
}

void BM_Baseline_OverlayTick(benchmark::State& state) {
    Desktop* d = desktop();
    if (!d) {
        state.SkipWithError("needs Xvfb");
        return;
    }
    for (auto _ : state)
        std::free(queryPointer(*d->connection));
}

void BM_MagnifierTick(benchmark::State& state) {
    Desktop* d = desktop();
    if (!d) {
        state.SkipWithError("needs Xvfb");
        return;
    }
    X11MagnifierSource source(*d->connection, [](xcb_window_t) { return false; });
    QImage shown(402, 348, QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        xcb_query_pointer_reply_t* pointer = queryPointer(*d->connection);
        const auto crop =
            source.read(X11Rect{pointer->root_x - 67, pointer->root_y - 58, 134, 116});
        std::free(pointer);
        if (crop) {
            QPainter painter(&shown);
            painter.drawImage(QRect(0, 0, 402, 348), *crop);
        }
        benchmark::DoNotOptimize(shown.constBits());
    }
}

// The same round when the screen under the magnifier did not change: nothing to paint.
void BM_MagnifierTickAtRest(benchmark::State& state) {
    Desktop* d = desktop();
    if (!d) {
        state.SkipWithError("needs Xvfb");
        return;
    }
    X11MagnifierSource source(*d->connection, [](xcb_window_t) { return false; });
    for (auto _ : state) {
        xcb_query_pointer_reply_t* pointer = queryPointer(*d->connection);
        const auto crop =
            source.read(X11Rect{pointer->root_x - 67, pointer->root_y - 58, 134, 116});
        std::free(pointer);
        benchmark::DoNotOptimize(crop->constBits());
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
// Wall time too: most of a tick is waiting for the server.
BENCHMARK(BM_Baseline_OverlayTick)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MagnifierTick)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MagnifierTickAtRest)->Unit(benchmark::kMicrosecond);

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
    fmt::print("live magnifier, one tick at 60 Hz (CPU of this process):\n");
    reporter.printRatio("  magnifier tick", "BM_MagnifierTick", "a tick without it",
                        "BM_Baseline_OverlayTick");
    reporter.printRatio("  magnifier tick, screen unchanged", "BM_MagnifierTickAtRest",
                        "a tick without it", "BM_Baseline_OverlayTick");
    benchmark::Shutdown();
    return 0;
}
