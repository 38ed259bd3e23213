// CPU per recorded second of a separate-layers recording of a 1920x1080 screen at 30 frames/s
// with the 1280x720, 30 frames/s test camera as its camera layer, against the same recording
// without the camera, interleaved in the same run on the same private Xvfb whose picture changes
// all the time. Reports per pair both figures, the cores the camera layer adds and the camera
// frames that did not reach the file; closes with the medians. TQ_BENCH_SECONDS sets the length
// of each recording (5 s unless given), TQ_BENCH_PAIRS the number of pairs (3). Needs Xvfb.

#include "media/FFmpegHandles.h"

#include <fmt/format.h>
#include <xcb/xcb.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

double setting(const char* name, double fallback) {
    const char* given = std::getenv(name);
    return given && std::atof(given) > 0 ? std::atof(given) : fallback;
}

pid_t spawn(const std::vector<std::string>& argv, const std::string& log) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd =
            open(log.empty() ? "/dev/null" : log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, STDOUT_FILENO);
        dup2(fd, STDERR_FILENO);
        std::vector<char*> args;
        for (const std::string& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// CPU seconds of a child run to its end; negative when it failed.
double cpuSecondsOf(const std::vector<std::string>& argv, const std::string& log) {
    const pid_t pid = spawn(argv, log);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

int videoPackets(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0)
        return 0;
    AVInputFormatContextPtr input(raw);
    avformat_find_stream_info(input.get(), nullptr);
    const int video = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    int count = 0;
    AVPacketPtr packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        count += packet->stream_index == video;
        av_packet_unref(packet.get());
    }
    return count;
}

// A private 1920x1080 X server with one client flipping a full-screen window between two
// colours every 8 ms, so every screen frame is new.
class Scene {
public:
    Scene() {
        int number = 190;
        while (std::filesystem::exists(fmt::format("/tmp/.X11-unix/X{}", number)) ||
               std::filesystem::exists(fmt::format("/tmp/.X{}-lock", number)))
            ++number;
        display = fmt::format(":{}", number);
        m_server = spawn(
            {"Xvfb", display, "-screen", "0", "1920x1080x24", "-nolisten", "tcp", "-noreset"}, "");
        for (int i = 0;
             i < 100 && !std::filesystem::exists(fmt::format("/tmp/.X11-unix/X{}", number)); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        setenv("DISPLAY", display.c_str(), 1);
        m_animation = std::thread([this] { animate(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
    ~Scene() {
        m_stop = true;
        if (m_animation.joinable())
            m_animation.join();
        kill(m_server, SIGTERM);
        waitpid(m_server, nullptr, 0);
    }
    std::string display;

private:
    void animate() {
        xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
        if (xcb_connection_has_error(c)) {
            xcb_disconnect(c);
            return;
        }
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        const xcb_window_t window = xcb_generate_id(c);
        const uint32_t values[] = {0x1d3b5a, 1};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1920, 1080, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(c, window);
        for (uint32_t n = 0; !m_stop; ++n) {
            const uint32_t colour = n % 2 ? 0x5a3b1d : 0x1d3b5a;
            xcb_change_window_attributes(c, window, XCB_CW_BACK_PIXEL, &colour);
            xcb_clear_area(c, 0, window, 0, 0, 0, 0);
            xcb_flush(c);
            std::this_thread::sleep_for(std::chrono::milliseconds(8));
        }
        xcb_disconnect(c);
    }

    pid_t m_server = -1;
    std::thread m_animation;
    std::atomic<bool> m_stop{false};
};

struct Run {
    double cpuPerSecond = -1;
    int cameraDropped = 0;
};

Run record(bool withCamera, double seconds) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / "tq-bench-camera-layer";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    std::vector<std::string> argv = {TAVELQUISTON_CLI_PATH,
                                     "record",
                                     "--duration",
                                     fmt::format("{}", seconds),
                                     "--fps",
                                     "30",
                                     "--codec",
                                     "h264",
                                     "--separate-layers",
                                     "--output",
                                     folder.string()};
    if (withCamera) {
        argv.push_back("--camera");
        argv.push_back("Test Camera");
    }
    const std::string log = (folder / "log.txt").string();
    Run run;
    const double cpu = cpuSecondsOf(argv, log);
    if (cpu < 0) {
        fmt::print(stderr, "❌ The recording failed; its log is in {}\n", log);
        std::exit(1);
    }
    run.cpuPerSecond = cpu / seconds;
    if (withCamera) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.is_directory()) {
                const int frames = videoPackets((entry.path() / ".camera.mov").string());
                run.cameraDropped = std::max(0, int(seconds * 30) - 1 - frames);
            }
        }
    }
    return run;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main() {
    if (std::system("command -v Xvfb >/dev/null 2>&1") != 0) {
        fmt::print("skipped: needs Xvfb\n");
        return 0;
    }
    setenv("TAVELQUISTON_TEST_CAMERA", "1", 1);
    const double seconds = setting("TQ_BENCH_SECONDS", 5);
    const int pairs = int(setting("TQ_BENCH_PAIRS", 3));
    Scene scene;
    std::vector<double> screenAlone, withCamera, added;
    fmt::print("1080p30 screen layer, {} s per recording; CPU seconds per recorded second\n",
               seconds);
    for (int pair = 0; pair < pairs; ++pair) {
        const Run base = record(false, seconds);
        const Run camera = record(true, seconds);
        screenAlone.push_back(base.cpuPerSecond);
        withCamera.push_back(camera.cpuPerSecond);
        added.push_back(camera.cpuPerSecond - base.cpuPerSecond);
        fmt::print("pair {}: screen alone {:.3f}, with 720p30 camera layer {:.3f} = {:.2f} x "
                   "screen alone; the camera adds {:.3f} cores; camera frames dropped: {}\n",
                   pair + 1, base.cpuPerSecond, camera.cpuPerSecond,
                   camera.cpuPerSecond / base.cpuPerSecond, added.back(), camera.cameraDropped);
    }
    fmt::print(
        "median: screen alone {:.3f}, with camera {:.3f} = {:.2f} x screen alone; the camera "
        "layer adds {:.3f} cores\n",
        median(screenAlone), median(withCamera), median(withCamera) / median(screenAlone),
        median(added));
    return 0;
}
