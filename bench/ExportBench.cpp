// The export against FFmpeg's own transcode of the same source, in the same run: a 1080p60
// screen recording with padding, corners, shadow, automatic zoom and the drawn cursor at x264
// "veryfast", beside `ffmpeg -i SOURCE -c:v libx264 -preset veryfast` at the same quality; then
// a passthrough trim of the whole length beside `ffmpeg -c copy`. Both sides are child
// processes measured the same way (wall time, peak resident memory).
//
// Usage: exportbench [SECONDS]   (default 60)

#include "core/metadata/MetadataFile.h"
#include "core/metadata/RecordingMetadata.h"

#include "SyntheticCursorPath.h"

#include <fmt/format.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

struct Outcome {
    double wallSeconds = 0;
    double cpuSeconds = 0;
    double peakMegabytes = 0;
    int status = -1;
};

Outcome runToEnd(const std::vector<std::string>& argv) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        std::vector<char*> args;
        for (const std::string& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Outcome outcome;
    outcome.wallSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    outcome.cpuSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                         double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    outcome.peakMegabytes = double(usage.ru_maxrss) / 1024.0;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// Cursor data of a recording: a wandering pointer and a click every five seconds, which the
// attention analysis turns into automatic zoom segments.
void writeMetadata(const QString& path, double seconds) {
    std::mt19937 random(7);
    RecordingMetadata metadata;
    metadata.duration = seconds;
    metadata.resolution = {1920, 1080};
    metadata.frameRate = 60;
    metadata.cursorPositions = randomWalkCursor(std::int64_t(seconds * 60), 60.0, random);
    for (double t = 2.0; t < seconds - 1; t += 5.0) {
        CursorClick click;
        click.timestamp = t;
        click.position = metadata.cursorPositions[size_t(t * 60)].position;
        metadata.cursorClicks.push_back(click);
    }
    writeMetadataFile(metadata, path);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60.0;
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0) {
        fmt::print(stderr, "❌ ffmpeg is not installed; run scripts/install-deps.sh\n");
        return 1;
    }
    QTemporaryDir folder;
    const auto file = [&](const char* name) {
        return QDir(folder.path()).filePath(name).toStdString();
    };
    const std::string source = file("screen.mp4");
    fmt::print("Making a {:.0f} s 1080p60 source...\n", seconds);
    // Moving, zooming test content at screen-recording quality, with a tone.
    const Outcome made =
        runToEnd({"ffmpeg",    "-y",
                  "-f",        "lavfi",
                  "-i",        fmt::format("testsrc2=s=1920x1080:r=60:d={}", seconds),
                  "-f",        "lavfi",
                  "-i",        fmt::format("sine=f=440:d={}", seconds),
                  "-c:v",      "libx264",
                  "-preset",   "ultrafast",
                  "-crf",      "18",
                  "-g",        "60",
                  "-c:a",      "aac",
                  "-shortest", source});
    if (made.status != 0) {
        fmt::print(stderr, "❌ could not make the source\n");
        return 1;
    }
    writeMetadata(QString::fromStdString(file(".screen.metadata.json")), seconds);
    const double frames = seconds * 60;

    const Outcome plain = runToEnd({"ffmpeg", "-y", "-i", source, "-c:v", "libx264", "-preset",
                                    "veryfast", "-crf", "20", "-c:a", "aac", file("plain.mp4")});
    const Outcome styled =
        runToEnd({TAVELQUISTON_CLI_PATH, "export", source, "--background", "gradient:ocean",
                  "--padding", "80", "--corner-radius", "28", "--screen-shadow", "0.4,30", "--zoom",
                  "auto", "--cursor", "--output", file("styled.mp4")});
    const Outcome copy = runToEnd({"ffmpeg", "-y", "-i", source, "-t", fmt::format("{}", seconds),
                                   "-c", "copy", file("copy.mp4")});
    const Outcome trim = runToEnd({TAVELQUISTON_CLI_PATH, "export", source, "--trim",
                                   fmt::format("0-{}", seconds), "--output", file("trim.mp4")});
    if (plain.status != 0 || styled.status != 0 || copy.status != 0 || trim.status != 0) {
        fmt::print(stderr, "❌ a run failed: ffmpeg {}, styled {}, copy {}, trim {}\n", plain.status,
                   styled.status, copy.status, trim.status);
        return 1;
    }
    const double plainFps = frames / plain.wallSeconds;
    const double styledFps = frames / styled.wallSeconds;
    fmt::print("plain transcode (ffmpeg veryfast): {:.1f} s, {:.1f} frames/s, {:.0f} MB peak\n",
               plain.wallSeconds, plainFps, plain.peakMegabytes);
    fmt::print("styled export (padding, corners, shadow, auto zoom, cursor): {:.1f} s, {:.1f} "
               "frames/s, {:.0f} MB peak\n",
               styled.wallSeconds, styledFps, styled.peakMegabytes);
    fmt::print("styled export speed: {:.2f} x plain transcode (target 0.9), {:.2f} x real time "
               "(target 1.2)\n",
               styledFps / plainFps, seconds / styled.wallSeconds);
    fmt::print("CPU seconds: styled {:.1f} = {:.2f} x plain {:.1f}\n", styled.cpuSeconds,
               styled.cpuSeconds / plain.cpuSeconds, plain.cpuSeconds);
    fmt::print("passthrough trim of {:.0f} s: {:.3f} s (target under 1 s) = {:.2f} x ffmpeg -c "
               "copy ({:.3f} s)\n",
               seconds, trim.wallSeconds, trim.wallSeconds / copy.wallSeconds, copy.wallSeconds);
    fmt::print("peak memory of the styled export: {:.0f} MB (target under 500 MB)\n",
               styled.peakMegabytes);
    return 0;
}
