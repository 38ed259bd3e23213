// Scrub latency of the trimmer's preview: a drag across a 1080p60 H.264 recording, each position
// decoded and composed as the preview does it (styled, through the export's compositor), against
// the decoder alone on the same positions in the same run. Wall time, median and 95th
// percentile, because the figure is how long a person waits for the frame under the pointer.
// Last, the same drag through the trimmer's player itself, paced at the 30 seeks a second it
// allows: from the pointer's move to a frame for that position on screen (while dragging, the
// player shows a frame near the position that is quick to decode, as loose seeks do), and from
// letting go to the exact frame there.
//
//   trimmerscrubbench [SECONDS]   (the length of the generated recording; 20 by default)
//
// A long recording is twenty seconds of testsrc2 (moving colours and a running clock) repeated
// by copying its packets, which takes seconds where encoding ten minutes of 1080p would take
// many minutes; each repeat decodes as the first did.

#include "app/trimmer/PreviewRenderer.h"
#include "app/trimmer/TrimmerPlayer.h"
#include "exporter/AdvancedVideoExporter.h"
#include "exporter/VideoTrimmerViewModel.h"
#include "media/export/VideoTrackReader.h"

#include <QApplication>
#include <QAudioDevice>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {
using Clock = std::chrono::steady_clock;

struct Figures {
    double median = 0.0;
    double p95 = 0.0;
};

Figures figuresOf(std::vector<double> ms) {
    std::sort(ms.begin(), ms.end());
    const auto at = [&](double q) { return ms[size_t(q * double(ms.size() - 1))]; };
    return {at(0.5), at(0.95)};
}

// Positions a pointer dragged across the timeline reaches at the 30 seeks a second the trimmer
// allows: forward in uneven steps, with a few jumps back, as a hand does it.
std::vector<double> dragPositions(double duration, int count) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> jitter(0.5, 1.5);
    std::vector<double> positions;
    double t = 0.0;
    const double step = duration / count;
    for (int i = 0; i < count; ++i) {
        t += step * jitter(random);
        if (i % 25 == 24)
            t -= step * 6;
        positions.push_back(std::clamp(t, 0.0, duration - 0.05));
    }
    return positions;
}
} // namespace

// A 1080p60 H.264 recording of `seconds`, made once and kept between runs.
std::filesystem::path makeRecording(double seconds) {
    const std::filesystem::path movie =
        std::filesystem::temp_directory_path() / fmt::format("tq-scrub-{}s.mp4", int(seconds));
    if (std::filesystem::exists(movie))
        return movie;
    const double piece = std::min(seconds, 20.0);
    const std::filesystem::path source =
        piece < seconds ? makeRecording(piece) : std::filesystem::path();
    fmt::print("🔍 Making a {}s 1080p60 H.264 recording at {}\n", seconds, movie.string());
    std::fflush(stdout);
    // Two key frames a second, as the recorder writes them.
    const std::string command =
        piece < seconds
            ? fmt::format("ffmpeg -v error -y -stream_loop {} -i '{}' -t {} -c copy '{}'",
                          int(std::ceil(seconds / piece)) - 1, source.string(), seconds,
                          movie.string())
            : fmt::format("ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=60 -t {} "
                          "-c:v libx264 -preset ultrafast -g 120 -pix_fmt yuv420p '{}'",
                          seconds, movie.string());
    if (std::system(command.c_str()) != 0) {
        fmt::print("❌ ffmpeg could not make the recording\n");
        std::exit(1);
    }
    return movie;
}

// The drag through the player: each position given to `scrub` at the pace of the 30 seeks a
// second the player allows, the wait timed until the frame for it is shown. Positions that a
// newer one replaced before their turn are never shown and are left out.
std::vector<double> dragThroughPlayer(TrimmerPlayer& player, const std::vector<double>& positions) {
    std::map<double, Clock::time_point> asked;
    std::vector<double> ms;
    const auto connection = QObject::connect(&player, &TrimmerPlayer::frameShown, [&](double t) {
        const auto found = asked.find(t);
        if (found == asked.end())
            return;
        ms.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - found->second).count());
        asked.erase(asked.begin(), std::next(found));
    });
    const auto pace = std::chrono::microseconds(1000000 / 30 + 500);
    for (double t : positions) {
        const auto start = Clock::now();
        asked.emplace(t, start);
        player.scrub(t);
        while (Clock::now() - start < pace)
            QApplication::processEvents(QEventLoop::AllEvents, 2);
    }
    const auto end = Clock::now() + std::chrono::seconds(2);
    while (!asked.empty() && Clock::now() < end)
        QApplication::processEvents(QEventLoop::AllEvents, 2);
    QObject::disconnect(connection);
    return ms;
}

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 20.0;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const std::filesystem::path movie = makeRecording(seconds);
    std::string error;
    auto renderer = PreviewRenderer::open(movie, std::nullopt, error);
    auto reader = VideoTrackReader::open(movie, error);
    if (!renderer || !reader) {
        fmt::print("❌ {}\n", error);
        return 1;
    }
    AdvancedExportArguments arguments;
    arguments.backgroundEnabled = true;
    arguments.backgroundSettings = VideoTrimmerViewModel::defaultBackgroundSettings();
    const RoundedCameraCompositorSettings settings = AdvancedVideoExporter::compositorSettings(
        arguments, {double(reader->width()), double(reader->height())}, {0.0, 0.0});
    renderer->setSettings(settings);

    const std::vector<double> positions = dragPositions(reader->duration().seconds(), 300);
    // Each pass drags with a decoder of its own, so that none finds the frame already decoded.
    const auto pass = [&](auto show) {
        std::vector<double> ms;
        for (double t : positions) {
            const auto start = Clock::now();
            if (!show(t))
                std::exit(1);
            ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        }
        return ms;
    };
    const std::vector<double> decoder =
        pass([&](double t) { return !reader->frameAt(MediaTime::fromSeconds(t, 600)).isNull(); });
    const std::vector<double> plain =
        pass([&](double t) { return !renderer->render(t, false).image.isNull(); });
    renderer->rebuild();
    const std::vector<double> styled =
        pass([&](double t) { return !renderer->render(t, true).image.isNull(); });
    renderer.reset();
    auto playerRenderer = PreviewRenderer::open(movie, std::nullopt, error);
    TrimmerPlayer player(std::move(playerRenderer), reader->duration().seconds());
    player.setCompositorSettings(settings);
    player.openAudio(movie, QAudioDevice());
    const auto ready = Clock::now() + std::chrono::seconds(10);
    while (player.currentFrame().isNull() && Clock::now() < ready)
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    const std::vector<double> dragged = dragThroughPlayer(player, positions);
    if (dragged.empty()) {
        fmt::print("❌ the player showed no frame of the drag\n");
        return 1;
    }
    // Releases: the exact frame where the pointer lets go, after a short drag to it.
    std::vector<double> released;
    {
        std::optional<double> waiting;
        Clock::time_point asked;
        const auto connection =
            QObject::connect(&player, &TrimmerPlayer::frameShown, [&](double t) {
                if (waiting && t == *waiting) {
                    released.push_back(
                        std::chrono::duration<double, std::milli>(Clock::now() - asked).count());
                    waiting.reset();
                }
            });
        for (size_t i = 0; i < positions.size(); i += 10) {
            player.scrub(positions[i]);
            const auto rest = Clock::now() + std::chrono::milliseconds(50);
            while (Clock::now() < rest)
                QApplication::processEvents(QEventLoop::AllEvents, 2);
            const double at = positions[i] + 0.37;
            asked = Clock::now();
            waiting = at;
            player.endScrub(at);
            const auto bound = Clock::now() + std::chrono::seconds(5);
            while (waiting && Clock::now() < bound)
                QApplication::processEvents(QEventLoop::AllEvents, 2);
        }
        QObject::disconnect(connection);
    }
    const Figures base = figuresOf(decoder);
    const Figures raw = figuresOf(plain);
    const Figures look = figuresOf(styled);
    fmt::print("🔍 {} seeks across {:.0f}s of 1080p60 H.264\n", positions.size(), seconds);
    fmt::print("decoder alone (baseline): median {:.1f} ms, p95 {:.1f} ms\n", base.median,
               base.p95);
    fmt::print("preview, plain:  median {:.1f} ms = {:.2f} x baseline, p95 {:.1f} ms = {:.2f} x "
               "baseline\n",
               raw.median, raw.median / base.median, raw.p95, raw.p95 / base.p95);
    fmt::print("preview, styled: median {:.1f} ms = {:.2f} x baseline, p95 {:.1f} ms = {:.2f} x "
               "baseline\n",
               look.median, look.median / base.median, look.p95, look.p95 / base.p95);
    const Figures drag = figuresOf(dragged);
    fmt::print("player, styled, pointer to frame on screen: median {:.1f} ms = {:.2f} x baseline, "
               "p95 {:.1f} ms = {:.2f} x baseline ({} of {} positions shown, the rest replaced "
               "by newer ones first)\n",
               drag.median, drag.median / base.median, drag.p95, drag.p95 / base.p95,
               dragged.size(), positions.size());
    if (!released.empty()) {
        const Figures exact = figuresOf(released);
        fmt::print("player, styled, release to exact frame on screen: median {:.1f} ms = {:.2f} x "
                   "baseline, p95 {:.1f} ms = {:.2f} x baseline ({} releases)\n",
                   exact.median, exact.median / base.median, exact.p95, exact.p95 / base.p95,
                   released.size());
    }
    return 0;
}
