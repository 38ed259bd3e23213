// Real-time recording cost of MediaWriter against the ffmpeg command line encoding the same
// frames with the same encoder settings, measured in the same run.
//
//   mediawriterbench --benchmark_filter=Record     sustained 1080p at 60 and 30 fps (H.264, H.265)
//   mediawriterbench --benchmark_filter=ProRes     ProRes 4444 encoders, frames per second
//   mediawriterbench --benchmark_filter=Memory     resident memory over a long recording
//   mediawriterbench --benchmark_filter=Finish     finishing, opening and seeking a one-hour file
//
// BENCH_SECONDS (default 60) sets each recording's length, BENCH_MEMORY_MINUTES (default 10)
// the memory run's. Figures are CPU seconds per recorded second; the ratio to the command line
// is what to compare, since other work on the machine makes absolute figures noisy.

#include "media/FFmpegHandles.h"
#include "media/MediaWriter.h"

#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {
constexpr int width = 1920;
constexpr int height = 1080;
constexpr int distinctFrames = 30;

int envInt(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : fallback;
}

double cpuSeconds(const rusage& usage) {
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double selfCpu() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return cpuSeconds(usage);
}

// Moving screen-like content: a gradient with a bar and a block of text-like noise that move.
const std::vector<VideoFrame>& screenFrames() {
    static std::vector<VideoFrame> frames = [] {
        std::vector<VideoFrame> list;
        uint32_t seed = 7;
        for (int index = 0; index < distinctFrames; ++index) {
            VideoFrame frame =
                VideoFrame::allocate(width, height, MediaTime::zero(), MediaTime::zero());
            for (int y = 0; y < height; ++y) {
                uint8_t* row = frame.mutableBytes() + size_t(y) * size_t(frame.bytesPerRow());
                for (int x = 0; x < width; ++x) {
                    bool bar = (x + index * 16) % width < 200;
                    bool text = y > 300 && y < 500 && ((x + index * 8) % 1200) < 600;
                    uint8_t noise =
                        text ? uint8_t((seed = seed * 1664525u + 1013904223u) >> 24) : 0;
                    row[x * 4 + 0] = bar ? 255 : uint8_t(x * 255 / width) ^ noise;
                    row[x * 4 + 1] = uint8_t(y * 255 / height) ^ noise;
                    row[x * 4 + 2] = bar ? 40 : uint8_t(index * 8);
                    row[x * 4 + 3] = 255;
                }
            }
            list.push_back(frame);
        }
        return list;
    }();
    return frames;
}

std::string scratchPath(const std::string& name) {
    return (std::filesystem::temp_directory_path() / ("tavelquiston-bench-" + name)).string();
}

WriterConfiguration configuration(const std::string& path, VideoEncoder codec, int fps) {
    WriterConfiguration config;
    config.outputURL = path;
    config.outputFormat = OutputFormat::mp4;
    WriterConfiguration::VideoSettings video;
    video.width = width;
    video.height = height;
    video.frameRate = fps;
    video.codec = codec;
    video.quality = VideoQuality::high;
    video.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709();
    config.videoSettings = video;
    return config;
}

struct RecordingResult {
    int refused = 0;
    int frames = 0;
    double cpu = 0;
};

// Appends frames at the capture's pace for `seconds`, as the screen capture thread would.
RecordingResult recordPaced(VideoEncoder codec, int fps, int seconds, const EncoderTuning& tuning) {
    const auto& frames = screenFrames();
    std::string path = scratchPath("writer.mp4");
    MediaWriter writer(tuning);
    RecordingResult result;
    double before = selfCpu();
    writer.configure(configuration(path, codec, fps));
    writer.startWriting();
    writer.startSession(MediaTime::zero());
    auto begin = std::chrono::steady_clock::now();
    result.frames = fps * seconds;
    for (int i = 0; i < result.frames; ++i) {
        std::this_thread::sleep_until(begin +
                                      std::chrono::microseconds(int64_t(i) * 1000000 / fps));
        VideoFrame frame = frames[size_t(i % distinctFrames)].withTiming(
            MediaTime::make(i, fps), MediaTime::make(1, fps), MediaTime::invalid());
        if (!writer.appendVideoBuffer(frame))
            result.refused++;
    }
    writer.finishWriting();
    result.cpu = selfCpu() - before;
    std::filesystem::remove(path);
    return result;
}

// The same frames, paced the same way, into `ffmpeg` reading raw BGRA from a pipe and encoding
// with the same encoder, preset, bitrate and key frame interval. Only the child's CPU is counted.
double commandLineCpu(VideoEncoder codec, int fps, int seconds, const EncoderTuning& tuning) {
    const auto& frames = screenFrames();
    std::string path = scratchPath("cli.mp4");
    int bitrate = MediaWriter::calculateBitrate(width, height, fps, VideoQuality::high, codec);
    int input[2];
    if (pipe(input) != 0)
        return 0;
    pid_t child = fork();
    if (child == 0) {
        dup2(input[0], 0);
        close(input[1]);
        std::string size = std::to_string(width) + "x" + std::to_string(height);
        std::string rate = std::to_string(fps);
        std::string bits = std::to_string(bitrate);
        bool h264 = codec == VideoEncoder::h264;
        std::vector<std::string> arguments{
            "ffmpeg",       "-v",
            "error",        "-y",
            "-f",           "rawvideo",
            "-pix_fmt",     "bgra",
            "-s",           size,
            "-framerate",   rate,
            "-i",           "pipe:0",
            "-c:v",         h264 ? "libx264" : "libx265",
            "-preset",      h264 ? tuning.softwareH264Preset : tuning.softwareHEVCPreset,
            "-b:v",         bits,
            "-g",           rate,
            "-pix_fmt",     "yuv420p",
            "-x265-params", "log-level=error",
            "-movflags",    "frag_keyframe+empty_moov+default_base_moof"};
        if (h264 && !tuning.softwareH264Tune.empty())
            arguments.insert(arguments.end(), {"-tune", tuning.softwareH264Tune});
        arguments.push_back(path);
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        execvp("ffmpeg", argv.data());
        _exit(127);
    }
    close(input[0]);
    signal(SIGPIPE, SIG_IGN);
    auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < fps * seconds; ++i) {
        std::this_thread::sleep_until(begin +
                                      std::chrono::microseconds(int64_t(i) * 1000000 / fps));
        const VideoFrame& frame = frames[size_t(i % distinctFrames)];
        for (int y = 0; y < height; ++y) {
            const uint8_t* row = frame.bytes() + size_t(y) * size_t(frame.bytesPerRow());
            if (write(input[1], row, size_t(width) * 4) < 0)
                break;
        }
    }
    close(input[1]);
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    std::filesystem::remove(path);
    return cpuSeconds(usage);
}

// BENCH_TUNE and BENCH_PRESET override the x264 tune and preset on both sides, BENCH_QUEUE_DEPTH
// the writer's video queue, for comparing.
EncoderTuning benchTuning() {
    EncoderTuning tuning;
    if (const char* tune = std::getenv("BENCH_TUNE"))
        tuning.softwareH264Tune = tune;
    if (const char* preset = std::getenv("BENCH_PRESET"))
        tuning.softwareH264Preset = preset;
    tuning.videoQueueDepth = size_t(envInt("BENCH_QUEUE_DEPTH", int(tuning.videoQueueDepth)));
    return tuning;
}

void Record(benchmark::State& state, VideoEncoder codec, int fps) {
    int seconds = envInt("BENCH_SECONDS", 60);
    EncoderTuning tuning = benchTuning();
    for (auto _ : state) {
        RecordingResult ours = recordPaced(codec, fps, seconds, tuning);
        double baseline = commandLineCpu(codec, fps, seconds, tuning);
        state.counters["refused_frames"] = ours.refused;
        state.counters["frames"] = ours.frames;
        state.counters["cpu_per_second"] = ours.cpu / seconds;
        state.counters["cli_cpu_per_second"] = baseline / seconds;
        state.counters["ratio_to_cli"] = baseline > 0 ? ours.cpu / baseline : 0;
    }
}

// Frames per second of the ProRes 4444 encoders with alpha at 1080p, unpaced.
void ProRes(benchmark::State& state, const std::string& encoder) {
    const auto& frames = screenFrames();
    constexpr int count = 60;
    for (auto _ : state) {
        std::string path = scratchPath("prores.mov");
        EncoderTuning tuning;
        tuning.proResEncoder = encoder;
        MediaWriter writer(tuning);
        WriterConfiguration config = configuration(path, VideoEncoder::h264, 60);
        config.outputFormat = OutputFormat::mov;
        config.videoSettings->hasAlphaChannel = true;
        config.videoSettings->alphaCodec = AlphaVideoCodec::proRes4444;
        writer.configure(config);
        writer.startWriting();
        writer.startSession(MediaTime::zero());
        auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < count; ++i) {
            VideoFrame frame = frames[size_t(i % distinctFrames)].withTiming(
                MediaTime::make(i, 60), MediaTime::make(1, 60), MediaTime::invalid());
            while (!writer.appendVideoBuffer(frame))
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        writer.finishWriting();
        double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        state.counters["frames_per_second"] = count / elapsed;
        state.counters["encoder_is_" + writer.videoEncoderName()] = 1;
        std::filesystem::remove(path);
    }
}

long residentKilobytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field, 0) == 0)
            return std::atol(line.c_str() + std::strlen(field));
    }
    return 0;
}

// Resident memory during a long 1080p30 H.264 recording: it must stay flat.
void Memory(benchmark::State& state) {
    int minutes = envInt("BENCH_MEMORY_MINUTES", 10);
    const auto& frames = screenFrames();
    for (auto _ : state) {
        std::string path = scratchPath("memory.mp4");
        MediaWriter writer;
        constexpr int fps = 30;
        writer.configure(configuration(path, VideoEncoder::h264, fps));
        writer.startWriting();
        writer.startSession(MediaTime::zero());
        auto begin = std::chrono::steady_clock::now();
        int total = minutes * 60 * fps;
        // Checkpoints at a tenth, half and the end of the run (1, 5 and 10 minutes by default).
        std::vector<int> checkpoints{total / 10, total / 2, total};
        size_t next = 0;
        int refused = 0;
        for (int i = 1; i <= total; ++i) {
            std::this_thread::sleep_until(begin +
                                          std::chrono::microseconds(int64_t(i) * 1000000 / fps));
            VideoFrame frame = frames[size_t(i % distinctFrames)].withTiming(
                MediaTime::make(i, fps), MediaTime::make(1, fps), MediaTime::invalid());
            refused += !writer.appendVideoBuffer(frame);
            if (next < checkpoints.size() && i == checkpoints[next]) {
                std::string at = std::to_string(i / fps) + "s";
                state.counters["rss_mb_at_" + at] = double(residentKilobytes("VmRSS:")) / 1024;
                state.counters["peak_rss_mb_at_" + at] = double(residentKilobytes("VmHWM:")) / 1024;
                ++next;
            }
        }
        auto finishBegin = std::chrono::steady_clock::now();
        writer.finishWriting();
        state.counters["finish_seconds"] =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - finishBegin).count();
        state.counters["refused_frames"] = refused;
        state.counters["file_mb"] = double(std::filesystem::file_size(path)) / 1e6;
        std::filesystem::remove(path);
    }
}

// What finishing costs for a long file: a one-hour recording (small pictures, so that it is
// written in about a minute; the number of fragments, which is what the finish writes an index
// for, depends only on the length) is finished, then opened and sought near its end.
void FinishOneHour(benchmark::State& state) {
    int minutes = envInt("BENCH_FINISH_MINUTES", 60);
    constexpr int fps = 30;
    constexpr int samplesPerFrame = 48000 / fps;
    for (auto _ : state) {
        std::string path = scratchPath("hour.mp4");
        WriterConfiguration config = configuration(path, VideoEncoder::h264, fps);
        config.videoSettings->width = 320;
        config.videoSettings->height = 180;
        MediaWriter writer;
        writer.configure(config);
        writer.startWriting();
        writer.startSession(MediaTime::zero());
        std::vector<VideoFrame> pictures;
        for (int i = 0; i < 2; ++i) {
            pictures.push_back(
                VideoFrame::allocate(320, 180, MediaTime::zero(), MediaTime::zero()));
            std::fill_n(pictures.back().mutableBytes(), size_t(pictures.back().bytesPerRow()) * 180,
                        uint8_t(i * 90));
        }
        AudioBuffer sound = AudioBuffer::allocate(2, 48000, samplesPerFrame, MediaTime::zero());
        for (int c = 0; c < 2; ++c) {
            for (int i = 0; i < samplesPerFrame; ++i)
                sound.mutableChannelData(c)[i] =
                    0.2f * float(std::sin(i * 2 * M_PI * 30 / samplesPerFrame));
        }
        int total = minutes * 60 * fps;
        for (int i = 0; i < total; ++i) {
            MediaTime at = MediaTime::make(i, fps);
            VideoFrame picture = pictures[size_t(i / fps % 2)].withTiming(
                at, MediaTime::make(1, fps), MediaTime::invalid());
            while (!writer.appendVideoBuffer(picture))
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            while (!writer.appendAudioBuffer(sound.withPresentationTime(at), 0))
                std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        auto finishBegin = std::chrono::steady_clock::now();
        writer.finishWriting();
        double finish =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - finishBegin).count();

        auto openBegin = std::chrono::steady_clock::now();
        AVFormatContext* raw = nullptr;
        avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
        AVInputFormatContextPtr input(raw);
        avformat_find_stream_info(input.get(), nullptr);
        double open =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - openBegin).count();
        auto seekBegin = std::chrono::steady_clock::now();
        int64_t target = int64_t(minutes * 60 * 0.95) * AV_TIME_BASE;
        av_seek_frame(input.get(), -1, target, AVSEEK_FLAG_BACKWARD);
        AVPacketPtr packet(av_packet_alloc());
        av_read_frame(input.get(), packet.get());
        double seek =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - seekBegin).count();
        double landed =
            double(packet->pts) * av_q2d(input->streams[packet->stream_index]->time_base);

        state.counters["finish_seconds"] = finish;
        state.counters["open_seconds"] = open;
        state.counters["seek_seconds"] = seek;
        state.counters["seek_landed_at_s"] = landed;
        state.counters["duration_s"] = double(input->duration) / AV_TIME_BASE;
        state.counters["file_mb"] = double(std::filesystem::file_size(path)) / 1e6;
        input.reset();
        std::filesystem::remove(path);
    }
}
} // namespace

BENCHMARK_CAPTURE(Record, H264_1080p60, VideoEncoder::h264, 60)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(Record, H264_1080p30, VideoEncoder::h264, 30)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(Record, H265_1080p60, VideoEncoder::h265, 60)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(Record, H265_1080p30, VideoEncoder::h265, 30)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(ProRes, prores_aw, std::string("prores_aw"))
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(ProRes, prores_ks, std::string("prores_ks"))
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK(Memory)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(FinishOneHour)->Iterations(1)->Unit(benchmark::kSecond);

BENCHMARK_MAIN();
