// Playback in the trimmer: the CPU the styled preview takes while playing 1080p at 60 and 30
// frames a second, with the frames it shows, drops and shows late, against the decoder alone
// decoding the same frames in the same run; and the memory a one-hour recording takes when open
// in the trimmer window (its session, player, sound and waveform), against the same window on a
// one-minute recording of the same kind.
//
//   trimmerplaybackbench [SECONDS [playback|memory]]   (how long each playback runs, 8 s by
//                                                     default; both parts by default)
//
// The one-hour recording is made quickly: one minute of a small (320x180) moving picture with a
// tone, repeated sixty times by copying its packets. Memory that grows with the length shows in
// the hour against the minute; what grows with the picture size is measured apart on a 1080p
// minute.

#include "app/trimmer/PreviewRenderer.h"
#include "app/trimmer/TrimmerPlayer.h"
#include "app/trimmer/TrimmerWindow.h"
#include "exporter/AdvancedVideoExporter.h"
#include "exporter/VideoTrimmerViewModel.h"
#include "media/export/VideoTrackReader.h"

#include <QApplication>
#include <QAudioDevice>

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

namespace {
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// Resident memory now and at its highest, in MB.
std::pair<double, double> residentMegabytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    double now = 0, peak = 0;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0)
            now = std::atof(line.c_str() + 6) / 1024.0;
        if (line.rfind("VmHWM:", 0) == 0)
            peak = std::atof(line.c_str() + 6) / 1024.0;
    }
    return {now, peak};
}

bool run(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

// A recording made once and kept in the temporary folder between runs.
fs::path recording(const std::string& name, const std::string& make) {
    const fs::path path = fs::temp_directory_path() / name;
    if (fs::exists(path))
        return path;
    fmt::print("🔍 Making {}\n", path.string());
    std::fflush(stdout);
    if (!run(fmt::format(fmt::runtime(make), fmt::arg("out", path.string())))) {
        fmt::print("❌ ffmpeg could not make {}\n", path.string());
        std::exit(1);
    }
    return path;
}

fs::path movie1080(int rate) {
    return recording(fmt::format("tq-play-1080p{}.mp4", rate),
                     fmt::format("ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate={} "
                                 "-t 20 -c:v libx264 -preset ultrafast -g {} -pix_fmt yuv420p "
                                 "'{{out}}'",
                                 rate, rate * 2));
}

fs::path minute(const std::string& size) {
    return recording(fmt::format("tq-play-minute-{}.mp4", size),
                     fmt::format("ffmpeg -v error -y -f lavfi -i testsrc2=size={}:rate=30 -f lavfi "
                                 "-i sine=frequency=440:sample_rate=48000 -t 60 -c:v libx264 "
                                 "-preset ultrafast -g 60 -pix_fmt yuv420p -c:a aac '{{out}}'",
                                 size));
}

fs::path hour() {
    const fs::path source = minute("320x180");
    return recording("tq-play-hour-320x180.mp4",
                     fmt::format("ffmpeg -v error -y -stream_loop 59 -i '{}' -c copy '{{out}}'",
                                 source.string()));
}

RoundedCameraCompositorSettings styled(int width, int height) {
    AdvancedExportArguments arguments;
    arguments.backgroundEnabled = true;
    arguments.backgroundSettings = VideoTrimmerViewModel::defaultBackgroundSettings();
    return AdvancedVideoExporter::compositorSettings(arguments, {double(width), double(height)},
                                                     {0.0, 0.0});
}

// Styled playback for `seconds` against decoding the same frames alone.
void playback(int rate, double seconds) {
    const fs::path movie = movie1080(rate);
    std::string error;
    auto reader = VideoTrackReader::open(movie, error);
    auto renderer = PreviewRenderer::open(movie, std::nullopt, error);
    if (!reader || !renderer) {
        fmt::print("❌ {}\n", error);
        std::exit(1);
    }
    const int frames = int(seconds * rate);
    double cpu = cpuSeconds();
    auto wall = Clock::now();
    for (int i = 0; i < frames; ++i) {
        if (reader->frameAt(MediaTime::fromSeconds((i + 0.5) / rate, 600)).isNull())
            std::exit(1);
    }
    const double decoderCpu = cpuSeconds() - cpu;
    const double decoderWall = std::chrono::duration<double>(Clock::now() - wall).count();

    TrimmerPlayer player(std::move(renderer), reader->duration().seconds());
    player.setCompositorSettings(styled(reader->width(), reader->height()));
    // Silent: the steady clock, as on a machine without a sound device.
    player.openAudio(movie, QAudioDevice());
    // Play starts from the styled picture on screen, as a person presses play after seeing it.
    for (const auto shownBy = Clock::now() + std::chrono::seconds(5);
         player.currentFrame().isNull() && Clock::now() < shownBy;)
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    cpu = cpuSeconds();
    wall = Clock::now();
    player.play();
    while (std::chrono::duration<double>(Clock::now() - wall).count() < seconds)
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    const TrimmerPlayer::Statistics stats = player.statistics();
    const double played = player.position();
    player.pause();
    const double playCpu = cpuSeconds() - cpu;
    const double playWall = std::chrono::duration<double>(Clock::now() - wall).count();
    fmt::print("1080p{} styled playback: {:.1f} s played in {:.1f} s; {} frames shown of {} due, "
               "{} dropped, {} late, {} shown twice\n",
               rate, played, playWall, stats.shown, int(played * rate), stats.dropped, stats.late,
               stats.repeated);
    fmt::print("  decoder alone (baseline): {:.2f} cores ({:.1f} s of CPU for {:.1f} s of video, "
               "decoded in {:.1f} s)\n",
               decoderCpu / seconds, decoderCpu, seconds, decoderWall);
    fmt::print("  styled playback: {:.2f} cores = {:.2f} x baseline\n", playCpu / playWall,
               (playCpu / playWall) / (decoderCpu / seconds));
}

// The child's part: open the movie in a trimmer window, look around, play, report memory.
int memoryChild(const QString& path) {
    const double before = residentMegabytes().first;
    QString error;
    auto window = TrimmerWindow::open(path, error);
    if (!window) {
        fmt::print("❌ {}\n", error.toStdString());
        return 1;
    }
    window->resize(1120, 760);
    window->show();
    TrimmerPlayer& player = window->player();
    const auto settle = [](double seconds) {
        const auto until = Clock::now() + std::chrono::duration<double>(seconds);
        while (Clock::now() < until)
            QApplication::processEvents(QEventLoop::AllEvents, 5);
    };
    settle(3.0); // the waveform is made in the background
    for (int i = 0; i < 10; ++i) {
        player.seek(player.duration() * i / 10.0);
        settle(0.3);
    }
    player.play();
    settle(2.0);
    player.pause();
    settle(0.5);
    const auto [now, peak] = residentMegabytes();
    fmt::print("{:.1f} {:.1f} {:.1f}\n", before, now, peak);
    return 0;
}

struct Memory {
    double before = 0, now = 0, peak = 0;
};

Memory memoryOf(const char* self, const fs::path& movie) {
    const std::string command =
        fmt::format("QT_QPA_PLATFORM=offscreen '{}' memory-child '{}'", self, movie.string());
    Memory m;
    FILE* child = popen(command.c_str(), "r");
    if (!child)
        std::exit(1);
    char line[256];
    while (std::fgets(line, sizeof line, child)) {
        if (std::sscanf(line, "%lf %lf %lf", &m.before, &m.now, &m.peak) != 3)
            std::fputs(line, stdout);
    }
    if (pclose(child) != 0 || m.peak <= 0) {
        fmt::print("❌ the trimmer could not open {}\n", movie.string());
        std::exit(1);
    }
    return m;
}
} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "memory-child") {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QApplication app(argc, argv);
        return memoryChild(QString::fromLocal8Bit(argv[2]));
    }
    const double seconds = argc > 1 ? std::atof(argv[1]) : 8.0;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const std::string part = argc > 2 ? argv[2] : "";
    QApplication app(argc, argv);
    if (part != "memory") {
        playback(30, seconds);
        playback(60, seconds);
    }
    if (part == "playback")
        return 0;

    const Memory small = memoryOf(argv[0], minute("320x180"));
    const Memory large = memoryOf(argv[0], hour());
    const Memory wide = memoryOf(argv[0], minute("1920x1080"));
    fmt::print("memory with a recording open in the trimmer (resident MB: before opening, after, "
               "peak):\n");
    fmt::print("  one minute at 320x180 (baseline): {:.0f} / {:.0f} / {:.0f}\n", small.before,
               small.now, small.peak);
    fmt::print("  one hour at 320x180: {:.0f} / {:.0f} / {:.0f}; peak = {:.2f} x baseline\n",
               large.before, large.now, large.peak, large.peak / small.peak);
    fmt::print("  one minute at 1920x1080: {:.0f} / {:.0f} / {:.0f}; peak = {:.2f} x baseline\n",
               wide.before, wide.now, wide.peak, wide.peak / small.peak);
    fmt::print("  estimate for one hour at 1920x1080: {:.0f} MB peak (the 1080p minute plus what "
               "the hour adds at 320x180)\n",
               wide.peak + std::max(0.0, large.peak - small.peak));
    return 0;
}
