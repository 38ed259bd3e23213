// CPU per recorded second of an attached-device recording at 1080p30, against ffmpeg recording
// the same source with the same encoder settings, interleaved in the same run. The device is the
// test camera (a lavfi testsrc2 picture paced in real time and delivered as YUYV, as a capture
// card delivers it), because this machine has no V4L2 hardware; ffmpeg reads the same graph
// through its lavfi input instead of -f v4l2, and encodes with libx264 ultrafast, high profile,
// one thread, as our writer does at this pixel rate. Reports each pair and the median ratio.
// The same run also records the device with its own sound (a PulseAudio source that belongs to
// the test device, fed a tone, on a private sound server) and reports what the sound costs
// against the picture alone.
// TQ_BENCH_SECONDS sets each recording's length (10 s unless given), TQ_BENCH_PAIRS the pairs (3).
// Needs ffmpeg; skips otherwise. Without pulseaudio the sound is left out.

#ifdef TAVELQUISTON_BENCH_DEVICE_SOUND
#include "support/PulseAudioSession.h"
#endif

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

double setting(const char* name, double fallback) {
    const char* given = std::getenv(name);
    return given && std::atof(given) > 0 ? std::atof(given) : fallback;
}

// CPU seconds of a child run to its end; negative when it failed.
double cpuSecondsOf(const std::vector<std::string>& argv, const std::string& log) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, STDOUT_FILENO);
        dup2(fd, STDERR_FILENO);
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
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main() {
    if (std::system("command -v ffmpeg > /dev/null") != 0) {
        fmt::print("⚠️ ffmpeg is not installed: skipped\n");
        return 0;
    }
    const double seconds = setting("TQ_BENCH_SECONDS", 10);
    const int pairs = int(setting("TQ_BENCH_PAIRS", 3));
    const auto folder = std::filesystem::temp_directory_path() / "tavelquiston-device-bench";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    setenv("TAVELQUISTON_TEST_CAMERA", "1", 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
    const std::string duration = fmt::format("{}", seconds);

    bool withSound = false;
#ifdef TAVELQUISTON_BENCH_DEVICE_SOUND
    std::unique_ptr<PulseAudioSession> sound;
    if (PulseAudioSession::missingTool().empty()) {
        sound = std::make_unique<PulseAudioSession>();
        withSound = sound->isReady() &&
                    sound->addDeviceSound("bench_device", "bench_device_sound", "Test Camera") &&
                    sound->startTone(440.0, (seconds + 5) * 3 * pairs, 0.5, "bench_device");
    }
#endif
    if (!withSound)
        fmt::print("⚠️ no sound server for the device's sound: recording the picture alone\n");
    auto recordDevice = [&](const char* deviceAudio, const char* log) {
        std::vector<std::string> argv = {
            TAVELQUISTON_CLI_PATH, "record",        "--mode",    "device",       "--device",
            "Test Camera",         "--camera-size", "1920x1080", "--fps",        "30",
            "--duration",          duration,        "--output",  folder.string()};
        if (deviceAudio) {
            argv.push_back("--device-audio");
            argv.push_back(deviceAudio);
        }
        return cpuSecondsOf(argv, (folder / log).string());
    };

    std::vector<double> ratios;
    std::vector<double> soundRatios;
    for (int pair = 0; pair < pairs; ++pair) {
        const double ours = recordDevice("none", "ours.log");
        if (withSound) {
            const double oursWithSound = recordDevice(nullptr, "ours-sound.log");
            if (oursWithSound <= 0 || ours <= 0) {
                fmt::print("❌ a recording failed; see {}\n", folder.string());
                return 1;
            }
            soundRatios.push_back(oursWithSound / ours);
            fmt::print("pair {}: with the device's sound {:.3f} CPU s per recorded s, picture "
                       "alone {:.3f} = {:.2f} x\n",
                       pair + 1, oursWithSound / seconds, ours / seconds, oursWithSound / ours);
        }
        const double ffmpeg =
            cpuSecondsOf({"ffmpeg",
                          "-y",
                          "-v",
                          "error",
                          "-f",
                          "lavfi",
                          "-i",
                          "testsrc2=size=1920x1080:rate=30,realtime,format=yuyv422",
                          "-t",
                          duration,
                          "-c:v",
                          "libx264",
                          "-preset",
                          "ultrafast",
                          "-profile:v",
                          "high",
                          "-threads",
                          "1",
                          "-pix_fmt",
                          "yuv420p",
                          (folder / "ffmpeg.mov").string()},
                         (folder / "ffmpeg.log").string());
        if (ours <= 0 || ffmpeg <= 0) {
            fmt::print("❌ a recording failed; see {}\n", folder.string());
            return 1;
        }
        ratios.push_back(ours / ffmpeg);
        fmt::print(
            "pair {}: device recording {:.3f} CPU s per recorded s, ffmpeg {:.3f} = {:.2f} x "
            "ffmpeg\n",
            pair + 1, ours / seconds, ffmpeg / seconds, ours / ffmpeg);
    }
    fmt::print("Device recording at 1080p30: median {:.2f} x ffmpeg's CPU (target at most 1.1)\n",
               median(ratios));
    if (withSound)
        fmt::print("Device recording with its sound: median {:.2f} x the picture alone\n",
                   median(soundRatios));
    std::filesystem::remove_all(folder);
    return 0;
}
