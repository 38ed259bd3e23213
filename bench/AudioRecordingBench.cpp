// What sound costs a screen recording. On a private 1920x1080 Xvfb and a private PulseAudio (a
// null sink, and a mono 44.1 kHz microphone stand-in remapped from its monitor), records the
// display at 30 fps with tavelquiston-cli twice in the same run: without audio (the baseline),
// then with --system-audio and --microphone. The scene moves a square all the time and, every two
// seconds, flashes the screen white while a click is written into the sink. Reports the CPU each
// run took per recorded second, the CPU audio adds as a share of one core and as a ratio to the
// baseline, and the offset between each flash's first frame and its click's onset in the file:
// the first, the last, and the drift between them extrapolated to an hour.
// TQ_BENCH_SECONDS sets the length of each run (20 s unless given; 60 for the quoted figures).
// Needs Xvfb, pulseaudio, pactl and pacat; skips otherwise.

#include "media/FFmpegHandles.h"

#include <fmt/format.h>
#include <xcb/xcb.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

const double recordSeconds = [] {
    const char* given = std::getenv("TQ_BENCH_SECONDS");
    return given && std::atof(given) > 0 ? std::atof(given) : 20.0;
}();
constexpr int flashEverySeconds = 2;
constexpr int rate = 48000;

pid_t spawn(const std::vector<std::string>& argv, const std::string& output, int input = -1) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int out =
            open(output.empty() ? "/dev/null" : output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, STDOUT_FILENO);
        const int err = open("/dev/null", O_WRONLY);
        dup2(err, STDERR_FILENO);
        if (input >= 0)
            dup2(input, STDIN_FILENO);
        std::vector<char*> args;
        for (const std::string& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

void stop(pid_t pid) {
    if (pid > 0) {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
}

bool hasTool(const char* name) {
    return std::system(fmt::format("command -v {} >/dev/null 2>&1", name).c_str()) == 0;
}

// The X server, the sound server, and the scene that flashes and clicks together.
class Scene {
public:
    Scene() {
        for (const char* tool : {"Xvfb", "pulseaudio", "pactl", "pacat"})
            if (!hasTool(tool))
                return;
        int number = 190;
        while (std::filesystem::exists(fmt::format("/tmp/.X11-unix/X{}", number)))
            ++number;
        display = fmt::format(":{}", number);
        m_x = spawn(
            {"Xvfb", display, "-noreset", "-screen", "0", "1920x1080x24", "-nolisten", "tcp"}, "");
        char folder[] = "/tmp/tq-bench-pulse-XXXXXX";
        m_pulseFolder = mkdtemp(folder);
        chmod(m_pulseFolder.c_str(), 0700);
        setenv("XDG_RUNTIME_DIR", m_pulseFolder.c_str(), 1);
        unsetenv("DISPLAY");
        m_pulse = spawn({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
                         "--use-pid-file=no", "--system=no", "-L", "module-native-protocol-unix",
                         "-L", "module-null-sink sink_name=bench norewinds=1"},
                        "");
        setenv("PULSE_SERVER", ("unix:" + m_pulseFolder + "/pulse/native").c_str(), 1);
        for (int i = 0; i < 100 && std::system("pactl info >/dev/null 2>&1") != 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        std::system("pactl load-module module-remap-source source_name=benchmic "
                    "master=bench.monitor channels=1 rate=44100 >/dev/null");
        setenv("DISPLAY", display.c_str(), 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        int pipe[2];
        if (::pipe(pipe) != 0)
            return;
        // The smallest pipe: 21 ms of samples, not the third of a second a default one holds
        // between the scene and the player.
        fcntl(pipe[1], F_SETPIPE_SZ, 4096);
        // A small server buffer: each write waits for the sink, so the writer is paced by the
        // sound's own clock and a click leaves for the sink when the screen flashes.
        m_player = spawn({"pacat", "--device=bench", "--rate=48000", "--channels=1",
                          "--format=float32le", "--latency-msec=10"},
                         "", pipe[0]);
        close(pipe[0]);
        m_audioOut = pipe[1];
        m_thread = std::thread([this] { run(); });
        ready = true;
    }
    ~Scene() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        if (m_audioOut >= 0)
            close(m_audioOut);
        stop(m_player);
        stop(m_pulse);
        stop(m_x);
        if (!m_pulseFolder.empty())
            std::filesystem::remove_all(m_pulseFolder);
    }
    bool ready = false;
    std::string display;

private:
    void run() {
        xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        const xcb_window_t window = xcb_generate_id(c);
        const uint32_t values[] = {0x202020, 1};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1920, 1080, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(c, window);
        const xcb_gcontext_t gc = xcb_generate_id(c);
        const uint32_t grey = 0x808080;
        xcb_create_gc(c, gc, window, XCB_GC_FOREGROUND, &grey);
        xcb_flush(c);
        constexpr int chunk = rate / 100; // 10 ms
        std::vector<float> silence(chunk, 0.0f), click(chunk, 0.0f);
        for (int i = 0; i < chunk / 2; ++i)
            click[size_t(i)] = (i / 12) % 2 ? 0.8f : -0.8f;
        const int64_t clickEvery = int64_t(flashEverySeconds) * 100;
        for (int64_t n = 0; !m_stop; ++n) {
            const int64_t phase = n % clickEvery;
            const bool flashing = phase < 15; // 150 ms of white
            if (phase == 0 || phase == 15) {
                const uint32_t colour = phase == 0 ? 0xffffff : 0x202020;
                xcb_change_window_attributes(c, window, XCB_CW_BACK_PIXEL, &colour);
                xcb_clear_area(c, 0, window, 0, 0, 0, 0);
            }
            if (!flashing && n % 3 == 0) {
                // A square that never stops moving keeps every frame busy.
                xcb_clear_area(c, 0, window, 0, 400, 1920, 200);
                const xcb_rectangle_t square{int16_t((n * 8) % 1720), 400, 200, 200};
                xcb_poly_fill_rectangle(c, window, gc, 1, &square);
            }
            xcb_flush(c);
            const std::vector<float>& samples = phase == 0 ? click : silence;
            if (write(m_audioOut, samples.data(), samples.size() * sizeof(float)) < 0)
                break;
        }
        xcb_disconnect(c);
    }

    pid_t m_x = -1, m_pulse = -1, m_player = -1;
    int m_audioOut = -1;
    std::string m_pulseFolder;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
};

struct Run {
    double cpuSeconds = 0;
    int status = -1;
    std::string movie;
};

Run record(const std::vector<std::string>& extra, const std::string& folder) {
    std::vector<std::string> argv = {TAVELQUISTON_CLI_PATH,
                                     "record",
                                     "--duration",
                                     fmt::format("{}", recordSeconds),
                                     "--fps",
                                     "30",
                                     "--output",
                                     folder};
    argv.insert(argv.end(), extra.begin(), extra.end());
    const std::string log = folder + "/log.txt";
    const pid_t pid = spawn(argv, log);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Run run;
    run.cpuSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream in(log);
    for (std::string line; std::getline(in, line);)
        if (line.size() > 4 && line.ends_with(".mov"))
            run.movie = line;
    return run;
}

// Times in the file where the picture turns white, and where a click begins after a quiet spell.
struct Events {
    std::vector<double> flashes, clicks;
};

Events findEvents(const std::string& path) {
    Events events;
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0)
        return events;
    AVInputFormatContextPtr input(raw);
    avformat_find_stream_info(input.get(), nullptr);
    std::vector<AVCodecContextPtr> decoders(input->nb_streams);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters* p = input->streams[i]->codecpar;
        const AVCodec* codec = avcodec_find_decoder(p->codec_id);
        decoders[i].reset(avcodec_alloc_context3(codec));
        avcodec_parameters_to_context(decoders[i].get(), p);
        avcodec_open2(decoders[i].get(), codec, nullptr);
    }
    AVPacketPtr packet(av_packet_alloc());
    AVFramePtr frame(av_frame_alloc());
    bool white = false;
    int64_t quiet = rate; // samples since the last loud one
    auto drain = [&](unsigned index) {
        AVCodecContext* decoder = decoders[index].get();
        const AVRational base = input->streams[index]->time_base;
        while (avcodec_receive_frame(decoder, frame.get()) >= 0) {
            const double start = double(frame->best_effort_timestamp) * av_q2d(base);
            if (decoder->codec_type == AVMEDIA_TYPE_VIDEO) {
                const uint8_t* luma = frame->data[0];
                const int y = frame->height / 8; // a row above the moving square
                double sum = 0;
                for (int x = 0; x < frame->width; x += 8)
                    sum += luma[y * frame->linesize[0] + x];
                const bool isWhite = sum / (frame->width / 8) > 200;
                if (isWhite && !white)
                    events.flashes.push_back(start);
                white = isWhite;
            } else if (decoder->codec_type == AVMEDIA_TYPE_AUDIO) {
                const auto* samples = reinterpret_cast<const float*>(frame->extended_data[0]);
                for (int i = 0; i < frame->nb_samples; ++i) {
                    if (std::fabs(samples[i]) > 0.2f) {
                        if (quiet > rate / 2)
                            events.clicks.push_back(start + double(i) / frame->sample_rate);
                        quiet = 0;
                    } else {
                        ++quiet;
                    }
                }
            }
        }
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const unsigned index = unsigned(packet->stream_index);
        if (avcodec_send_packet(decoders[index].get(), packet.get()) >= 0)
            drain(index);
        av_packet_unref(packet.get());
    }
    return events;
}

} // namespace

int main() {
    Scene scene;
    if (!scene.ready) {
        fmt::print("skipped: Xvfb, pulseaudio, pactl or pacat is missing\n");
        return 0;
    }
    const std::string folder = std::filesystem::temp_directory_path() / "tq-audio-bench";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder + "/silent");
    std::filesystem::create_directories(folder + "/sound");
    fmt::print("1920x1080 at 30 fps, {} s per run\n", recordSeconds);
    const Run silent = record({}, folder + "/silent");
    const Run sound = record({"--system-audio", "--microphone", "benchmic"}, folder + "/sound");
    if (silent.status != 0 || sound.status != 0) {
        fmt::print("a recording failed: status {} and {}\n", silent.status, sound.status);
        return 1;
    }
    const double silentLoad = silent.cpuSeconds / recordSeconds;
    const double soundLoad = sound.cpuSeconds / recordSeconds;
    fmt::print("without audio (baseline):      {:.3f} CPU s per recorded s\n", silentLoad);
    fmt::print("with system audio + microphone: {:.3f} CPU s per recorded s\n", soundLoad);
    fmt::print("audio adds {:.2f} % of one core; ratio to baseline {:.3f}\n",
               100.0 * (soundLoad - silentLoad), soundLoad / silentLoad);

    const Events events = findEvents(sound.movie);
    std::vector<double> offsets, times;
    for (double flash : events.flashes) {
        double best = 1e9;
        for (double click : events.clicks)
            if (std::fabs(click - flash) < std::fabs(best))
                best = click - flash;
        if (std::fabs(best) < 0.5) {
            offsets.push_back(best);
            times.push_back(flash);
        }
    }
    fmt::print("{} flashes, {} clicks, {} paired\n", events.flashes.size(), events.clicks.size(),
               offsets.size());
    if (offsets.size() >= 2) {
        // The drift is the slope of a line fitted through all offsets: single offsets scatter by
        // the frame interval, as a flash lands anywhere between two captures.
        const double n = double(offsets.size());
        double sx = 0, sy = 0, sxx = 0, sxy = 0;
        for (size_t i = 0; i < offsets.size(); ++i) {
            const double x = times[i];
            sx += x;
            sy += offsets[i];
            sxx += x * x;
            sxy += x * offsets[i];
        }
        const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
        const double span = times.back() - times.front();
        const double drift = slope * span;
        for (size_t i = 0; i < offsets.size(); ++i)
            fmt::print("  offset {:2}: {:+.1f} ms\n", i, offsets[i] * 1000);
        const auto [low, high] = std::minmax_element(offsets.begin(), offsets.end());
        fmt::print("A/V offset range: {:+.1f} to {:+.1f} ms\n", *low * 1000, *high * 1000);
        fmt::print("A/V offset (sound after picture): first {:+.1f} ms, last {:+.1f} ms; fitted "
                   "drift {:+.1f} ms over {:.0f} s, {:+.1f} ms per hour at that rate (a frame is "
                   "33.3 ms)\n",
                   offsets.front() * 1000, offsets.back() * 1000, drift * 1000, span,
                   slope * 3600 * 1000);
    }
    std::filesystem::remove_all(folder);
    return 0;
}
