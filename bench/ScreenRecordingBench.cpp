// Records a 1920x1080 X display whose picture changes all the time, with tavelquiston-cli and
// with `ffmpeg -f x11grab` (libx264 ultrafast with our writer's settings: its average bit rate,
// a key frame every second, High profile), one after the other in the
// same run on the same private Xvfb. Reports per run: frames written and dropped, CPU seconds
// per recorded second, peak memory, and for tavelquiston the time from startRecording to the
// first written frame (from its startup trace). Closes with tavelquiston's CPU as a ratio to
// ffmpeg's. The second argument picks the scene: 0 flips a full-screen window between two
// colours, 1 moves a detailed full-screen pattern by a few pixels every 16 ms, standing for a
// video played full screen. One more ffmpeg run keeps ffmpeg's own defaults (constant quality,
// key frames 250 apart) for reference. TQ_BENCH_SECONDS sets the length of each run (5 s unless
// given; the figures worth quoting come from 30). TQ_BENCH_PAIRS repeats every pair of runs that
// many times, interleaved, and the ratios are reported per pair and as their median: this
// machine's speed drifts by tens of percent within minutes, so one pair can mislead. Needs Xvfb
// and ffmpeg; skips otherwise.

#include "core/metadata/MetadataRecorderAdapter.h"
#include "core/recording/CursorSampler.h"
#include "media/FFmpegHandles.h"
#include "media/MediaWriter.h"
#include "platform/x11/X11CursorMonitor.h"
#include "platform/x11/X11Handles.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Short unless asked: two cores are shared with other work.
const double recordSeconds = [] {
    const char* given = std::getenv("TQ_BENCH_SECONDS");
    return given && std::atof(given) > 0 ? std::atof(given) : 5.0;
}();

struct Outcome {
    double cpuSeconds = 0;
    double peakMegabytes = 0;
    int status = -1;
};

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

pid_t spawn(const std::vector<std::string>& argv, const std::string& output) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd =
            open(output.empty() ? "/dev/null" : output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, STDOUT_FILENO);
        const int errors = open(output.empty() ? "/dev/null" : (output + ".err").c_str(),
                                O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(errors, STDERR_FILENO);
        std::vector<char*> args;
        for (const std::string& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

Outcome runToEnd(const std::vector<std::string>& argv, const std::string& output) {
    const pid_t pid = spawn(argv, output);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Outcome outcome;
    outcome.cpuSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                         double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    outcome.peakMegabytes = double(usage.ru_maxrss) / 1024.0;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

bool hasTool(const char* name) {
    return std::system(fmt::format("command -v {} >/dev/null 2>&1", name).c_str()) == 0;
}

// A private 1920x1080 X server whose background changes all the time.
class Scene {
public:
    Scene() {
        if (!hasTool("Xvfb") || !hasTool("ffmpeg"))
            return;
        int number = 170;
        while (std::filesystem::exists(fmt::format("/tmp/.X11-unix/X{}", number)) ||
               std::filesystem::exists(fmt::format("/tmp/.X{}-lock", number)))
            ++number;
        display = fmt::format(":{}", number);
        m_server = spawn({"Xvfb", display, "-screen", "0", "1920x1080x24", "-nolisten", "tcp"}, "");
        for (int i = 0;
             i < 100 && !std::filesystem::exists(fmt::format("/tmp/.X11-unix/X{}", number)); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        setenv("DISPLAY", display.c_str(), 1);
        m_animation = std::thread([this] { animate(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ready = true;
    }
    ~Scene() {
        m_stop = true;
        if (m_animation.joinable())
            m_animation.join();
        if (m_server > 0) {
            kill(m_server, SIGTERM);
            waitpid(m_server, nullptr, 0);
        }
    }
    bool ready = false;
    std::string display;
    std::atomic<bool> video{false};

private:
    // One client that repaints a full-screen window in two colours by turns, every 8 ms: the
    // whole picture changes at every frame of either recorder. (A loop of xsetroot runs out of
    // client slots: each run keeps its colour on the server.)
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
        xcb_flush(c);
        const xcb_gcontext_t gc = xcb_generate_id(c);
        xcb_create_gc(c, gc, window, 0, nullptr);
        // Twice the screen's width of busy detail, so that a moving window onto it never
        // repeats within a frame; rows are sent in strips below the request size limit.
        constexpr int patternWidth = 3840, width = 1920, height = 1080, stripRows = 32;
        std::vector<uint32_t> pattern(size_t(patternWidth) * height);
        uint32_t noise = 12345;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < patternWidth; ++x) {
                noise = noise * 1664525u + 1013904223u;
                pattern[size_t(y) * patternWidth + x] = (uint32_t((x * 7 + y * 3) & 0xff) << 16) |
                                                        (uint32_t((x ^ y) & 0xff) << 8) |
                                                        ((noise >> 24) & 0x3f);
            }
        std::vector<uint32_t> strip(size_t(width) * stripRows);
        for (uint32_t n = 0; !m_stop; ++n) {
            if (video) {
                const int shift = int(n * 6 % (patternWidth - width));
                for (int top = 0; top < height; top += stripRows) {
                    const int rows = std::min(stripRows, height - top);
                    for (int row = 0; row < rows; ++row)
                        std::memcpy(&strip[size_t(row) * width],
                                    &pattern[size_t(top + row) * patternWidth + shift], width * 4);
                    xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, window, gc, width, uint16_t(rows),
                                  0, int16_t(top), 0, 24, uint32_t(size_t(width) * rows * 4),
                                  reinterpret_cast<const uint8_t*>(strip.data()));
                }
                // Waits for the server, so a slow server is not buried under images.
                X11Reply<xcb_get_input_focus_reply_t>(
                    xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
                std::this_thread::sleep_for(std::chrono::milliseconds(16));
                continue;
            }
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

Scene& scene() {
    static Scene instance;
    return instance;
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

// Milliseconds from startRecording.begin to firstVideoFrameAppended in the trace's report.
double firstFrameMilliseconds(const std::string& log) {
    const std::regex line(R"(/\s+([0-9.]+)ms\s+(startRecording\.begin|firstVideoFrameAppended))");
    std::map<std::string, double> at;
    for (std::sregex_iterator it(log.begin(), log.end(), line), end; it != end; ++it)
        at[(*it)[2]] = std::stod((*it)[1]);
    if (!at.count("startRecording.begin") || !at.count("firstVideoFrameAppended"))
        return NAN;
    return at["firstVideoFrameAppended"] - at["startRecording.begin"];
}

struct CaptureCounts {
    int64_t delivered = 0;
    int64_t idle = 0;
    int64_t missed = 0;
};

// The capture engine's closing line: frames delivered, idle ticks, ticks missed.
std::optional<CaptureCounts> captureCounts(const std::string& log) {
    const std::regex line(
        R"(Capture: ([0-9]+) frames delivered, ([0-9]+) idle ticks, ([0-9]+) ticks missed)");
    std::smatch match;
    if (!std::regex_search(log, match, line))
        return std::nullopt;
    return CaptureCounts{std::stoll(match[1]), std::stoll(match[2]), std::stoll(match[3])};
}

// Every run's CPU seconds per recorded second, in run order, by "<tool>/<fps>[/video]".
std::map<std::string, std::vector<double>> cpuPerSecond;

std::string key(const char* tool, const benchmark::State& state) {
    return fmt::format("{}/{}{}", tool, state.range(0), state.range(1) ? "/video" : "");
}

void report(benchmark::State& state, const std::string& key, const Outcome& outcome, int frames,
            int fps) {
    const double perSecond = outcome.cpuSeconds / recordSeconds;
    cpuPerSecond[key].push_back(perSecond);
    state.counters["frames"] = frames;
    state.counters["dropped"] = std::max(0.0, std::round(recordSeconds * fps) - frames);
    state.counters["cpu_s_per_s"] = perSecond;
    state.counters["peak_MB"] = outcome.peakMegabytes;
}

// Both recorders see the same scene: ready, in the asked mode, and settled for a moment.
bool prepareScene(benchmark::State& state) {
    if (!scene().ready) {
        state.SkipWithError("needs Xvfb and ffmpeg");
        return false;
    }
    scene().video = state.range(1) != 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return true;
}

// Moves the pointer in a circle through XTEST every 8 ms while it lives, as a busy hand would:
// every move reaches the pointer monitor of a recording that watches the cursor.
class PointerMover {
public:
    explicit PointerMover(bool enabled) {
        if (enabled)
            m_thread = std::thread([this] { run(); });
    }
    ~PointerMover() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
    }

private:
    void run() {
        xcb_connection_t* c = xcb_connect(scene().display.c_str(), nullptr);
        if (xcb_connection_has_error(c)) {
            xcb_disconnect(c);
            return;
        }
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
        for (int i = 0; !m_stop; ++i) {
            const double angle = i * 0.05;
            xcb_test_fake_input(c, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, root,
                                int16_t(960 + 400 * std::cos(angle)),
                                int16_t(540 + 300 * std::sin(angle)), 0);
            xcb_flush(c);
            std::this_thread::sleep_for(std::chrono::milliseconds(8));
        }
        xcb_disconnect(c);
    }
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// The third argument, when 1, records with the pointer monitor and 30 Hz cursor sampling on
// (--highlight) while the pointer moves all the time; the same moves run without it otherwise.
void Tavelquiston(benchmark::State& state) {
    const int fps = int(state.range(0));
    const bool monitoring = state.range(2) != 0;
    if (!prepareScene(state))
        return;
    PointerMover mover(state.range(2) >= 0);
    const std::string folder = std::filesystem::temp_directory_path() / "tq-bench-record";
    for (auto _ : state) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        const std::string log = folder + "/log.txt";
        std::vector<std::string> command = {TAVELQUISTON_CLI_PATH,
                                            "record",
                                            "--duration",
                                            fmt::format("{}", recordSeconds),
                                            "--fps",
                                            std::to_string(fps),
                                            "--codec",
                                            "h264",
                                            "--output",
                                            folder};
        if (monitoring)
            command.push_back("--highlight");
        const Outcome outcome = runToEnd(command, log);
        std::string movie;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            if (entry.path().extension() == ".mov")
                movie = entry.path();
        if (outcome.status != 0 || movie.empty()) {
            std::filesystem::copy_file(
                log, std::filesystem::temp_directory_path() / "tq-bench-record-failure.txt",
                std::filesystem::copy_options::overwrite_existing);
            state.SkipWithError("the recording failed; its log is in "
                                "/tmp/tq-bench-record-failure.txt");
            return;
        }
        const int frames = videoPackets(movie);
        const char* tool = state.range(2) < 0 ? "tavelquiston"
                           : monitoring       ? "tavelquiston-cursor"
                                              : "tavelquiston-moving";
        report(state, key(tool, state), outcome, frames, fps);
        const std::string text = readText(log);
        state.counters["first_frame_ms"] = firstFrameMilliseconds(text);
        // A tick where nothing on screen changed sends no frame; that is not a drop. Dropped
        // are the ticks the capture thread missed and the frames it delivered that did not
        // reach the file.
        if (const auto capture = captureCounts(text)) {
            state.counters["idle_ticks"] = capture->idle;
            state.counters["dropped"] =
                capture->missed + std::max<int64_t>(0, capture->delivered - frames);
        }
    }
    std::filesystem::remove_all(folder);
}

double threadCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

// The pointer monitor and the 30 Hz sampling alone, on this process's main thread as in a
// recording, while the pointer moves every 8 ms: the CPU of that thread per second, with
// every move and sample normalised and recorded into the metadata.
void CursorMonitoring(benchmark::State& state) {
    if (!prepareScene(state))
        return;
    PointerMover mover(true);
    for (auto _ : state) {
        X11CursorMonitor monitor;
        MetadataRecorderAdapter metadata(Size{1920, 1080}, 60);
        metadata.startRecording(QDateTime::currentDateTime());
        const Rect screen(0, 0, 1920, 1080);
        int moves = 0;
        int samples = 0;
        auto record = [&](Point p) {
            metadata.recordCursorPosition(
                CursorSampler::topLeft(CursorSampler::normalizedBottomLeft(p, screen)));
        };
        monitor.setCursorMoveHandler([&](Point p) {
            record(p);
            ++moves;
        });
        monitor.startMonitoring();
        QTimer sampling;
        QObject::connect(&sampling, &QTimer::timeout, [&] {
            if (const auto p = monitor.mouseLocation())
                record(*p);
            ++samples;
        });
        sampling.start(33);
        QEventLoop loop;
        QTimer::singleShot(int(recordSeconds * 1000), &loop, &QEventLoop::quit);
        const double before = threadCpuSeconds();
        loop.exec();
        const double cpu = threadCpuSeconds() - before;
        monitor.stopMonitoring();
        metadata.stopRecording(recordSeconds);
        cpuPerSecond["monitor/60"].push_back(cpu / recordSeconds);
        state.counters["cpu_s_per_s"] = cpu / recordSeconds;
        state.counters["moves_per_s"] = moves / recordSeconds;
        state.counters["samples_per_s"] = samples / recordSeconds;
    }
}

// `encoderSettings` replaces ffmpeg's defaults for libx264; empty keeps them.
void recordWithFfmpeg(benchmark::State& state, const char* tool,
                      const std::vector<std::string>& encoderSettings) {
    const int fps = int(state.range(0));
    if (!prepareScene(state))
        return;
    const std::string movie = std::filesystem::temp_directory_path() / "tq-bench-x11grab.mp4";
    for (auto _ : state) {
        std::vector<std::string> command = {"ffmpeg",      "-loglevel",
                                            "error",       "-y",
                                            "-f",          "x11grab",
                                            "-framerate",  std::to_string(fps),
                                            "-video_size", "1920x1080",
                                            "-i",          scene().display,
                                            "-t",          fmt::format("{}", recordSeconds),
                                            "-c:v",        "libx264",
                                            "-preset",     "ultrafast",
                                            "-pix_fmt",    "yuv420p"};
        command.insert(command.end(), encoderSettings.begin(), encoderSettings.end());
        command.push_back(movie);
        const Outcome outcome = runToEnd(command, movie + ".log");
        if (outcome.status != 0) {
            state.SkipWithError(("ffmpeg failed: " + readText(movie + ".log.err")).c_str());
            return;
        }
        report(state, key(tool, state), outcome, videoPackets(movie), fps);
    }
    std::filesystem::remove(movie);
    std::filesystem::remove(movie + ".log");
    std::filesystem::remove(movie + ".log.err");
}

// What our writer asks of the encoder at this size and rate, at the command's default quality.
void FfmpegX11grab(benchmark::State& state) {
    const int fps = int(state.range(0));
    const int bitRate =
        MediaWriter::calculateBitrate(1920, 1080, fps, VideoQuality::high, VideoEncoder::h264);
    recordWithFfmpeg(
        state, "ffmpeg",
        {"-b:v", std::to_string(bitRate), "-g", std::to_string(fps), "-profile:v", "high"});
}

void FfmpegX11grabDefaults(benchmark::State& state) {
    recordWithFfmpeg(state, "ffmpeg-defaults", {});
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    const char* givenPairs = std::getenv("TQ_BENCH_PAIRS");
    const int pairs = givenPairs && std::atoi(givenPairs) > 0 ? std::atoi(givenPairs) : 1;
    // Each recorder right after the other on the same scene, so the two see the same machine.
    for (int pair = 0; pair < pairs; ++pair) {
        auto add = [](const char* name, void (*run)(benchmark::State&), int fps, int video,
                      int cursor = -1) {
            benchmark::RegisterBenchmark(name, run)
                ->Args({fps, video, cursor})
                ->Iterations(1)
                ->Unit(benchmark::kSecond);
        };
        add("Tavelquiston", Tavelquiston, 60, 0);
        add("FfmpegX11grab", FfmpegX11grab, 60, 0);
        add("FfmpegX11grabDefaults", FfmpegX11grabDefaults, 60, 0);
        add("Tavelquiston", Tavelquiston, 30, 0);
        add("FfmpegX11grab", FfmpegX11grab, 30, 0);
        add("Tavelquiston", Tavelquiston, 60, 1);
        add("FfmpegX11grab", FfmpegX11grab, 60, 1);
        // The pointer moves in both; only the second watches it.
        add("TavelquistonPointerMoving", Tavelquiston, 60, 0, 0);
        add("TavelquistonCursorMonitoring", Tavelquiston, 60, 0, 1);
        add("CursorMonitoring", CursorMonitoring, 60, 0);
    }
    benchmark::RunSpecifiedBenchmarks();

    // Ratios of runs made side by side, then their median.
    auto ratios = [](const std::string& ours, const std::string& theirs) {
        std::vector<double> result;
        const auto a = cpuPerSecond.find(ours);
        const auto b = cpuPerSecond.find(theirs);
        if (a == cpuPerSecond.end() || b == cpuPerSecond.end())
            return result;
        for (size_t i = 0; i < std::min(a->second.size(), b->second.size()); ++i)
            if (b->second[i] > 0)
                result.push_back(a->second[i] / b->second[i]);
        return result;
    };
    auto median = [](std::vector<double> values) {
        std::sort(values.begin(), values.end());
        const size_t n = values.size();
        return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
    };
    auto print = [&](const std::string& label, const std::string& ours, const std::string& theirs) {
        const std::vector<double> each = ratios(ours, theirs);
        if (each.empty())
            return;
        std::string list;
        for (double r : each)
            list += fmt::format("{}{:.2f}", list.empty() ? "" : ", ", r);
        fmt::print("{}: median {:.2f} x (pairs: {}); ours {:.3f} s, theirs {:.3f} s per "
                   "recorded second (medians)\n",
                   label, median(each), list, median(cpuPerSecond[ours]),
                   median(cpuPerSecond[theirs]));
    };
    for (const char* run : {"60", "30", "60/video"})
        print(fmt::format("CPU at {} against ffmpeg -f x11grab with our encoder settings", run),
              fmt::format("tavelquiston/{}", run), fmt::format("ffmpeg/{}", run));
    print("For reference, CPU at 60 against ffmpeg's own encoder defaults", "tavelquiston/60",
          "ffmpeg-defaults/60");
    print("CPU at 60 with pointer monitoring and cursor sampling against without",
          "tavelquiston-cursor/60", "tavelquiston-moving/60");
    print("CPU of the pointer monitor and sampling alone against a whole recording at 60",
          "monitor/60", "tavelquiston-moving/60");
    benchmark::Shutdown();
    return 0;
}
