#include "support/PulseAudioSession.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <thread>

using namespace std::chrono_literals;

namespace {
void writeLittleEndian(std::ofstream& out, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.put(char((value >> (8 * i)) & 0xff));
}
} // namespace

std::string PulseAudioSession::missingTool() {
    for (const char* tool : {"pulseaudio", "pactl", "paplay", "parec"}) {
        if (!findExecutable(tool))
            return tool;
    }
    return {};
}

PulseAudioSession::PulseAudioSession() {
    char dir[] = "/tmp/tq-pulse-XXXXXX";
    if (!::mkdtemp(dir)) {
        m_error = "cannot make a runtime folder";
        return;
    }
    m_runtimeDir = dir;
    ::chmod(dir, 0700);
    m_server = "unix:" + m_runtimeDir + "/pulse/native";

    ChildProcess::Options options;
    // A private runtime folder keeps this daemon apart from any other; without DISPLAY it does
    // not try to publish itself on an X server.
    options.environment = {{"XDG_RUNTIME_DIR", m_runtimeDir}, {"HOME", m_runtimeDir}};
    options.unsetEnvironment = {"DISPLAY", "PULSE_SERVER", "DBUS_SESSION_BUS_ADDRESS"};
    // norewinds: without it the monitor source starts up to 1.5 s late.
    m_daemon = ChildProcess(
        {"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit",
         "--use-pid-file=no", "--system=no", "-L", "module-native-protocol-unix", "-L",
         std::string("module-null-sink sink_name=") + sinkName + " norewinds=1"},
        options);

    m_serverVariable = std::make_unique<ScopedEnvironment>("PULSE_SERVER", m_server);
    const auto deadline = std::chrono::steady_clock::now() + serviceStartBound;
    while (std::chrono::steady_clock::now() < deadline) {
        if (!m_daemon.isRunning()) {
            m_error = "pulseaudio exited at start";
            return;
        }
        if (std::filesystem::exists(m_runtimeDir + "/pulse/native") &&
            runCommand({"pactl", "--server=" + m_server, "info"}, 2000ms) == 0) {
            runCommand({"pactl", "--server=" + m_server, "set-default-sink", sinkName}, 2000ms);
            m_ready = true;
            return;
        }
        std::this_thread::sleep_for(20ms);
    }
    m_error = "pulseaudio did not answer within 20 s";
}

PulseAudioSession::~PulseAudioSession() {
    m_players.clear();
    m_daemon.stop();
    m_serverVariable.reset();
    for (const auto& file : m_files)
        ::unlink(file.c_str());
    std::error_code ignored;
    if (!m_runtimeDir.empty())
        std::filesystem::remove_all(m_runtimeDir, ignored);
}

std::string PulseAudioSession::writeTone(double frequency, double seconds, double amplitude) {
    const std::string path = m_runtimeDir + "/tone-" + std::to_string(m_files.size()) + ".wav";
    const uint32_t rate = 48000, channels = 2;
    const auto frames = uint32_t(seconds * rate);
    std::ofstream out(path, std::ios::binary);
    out.write("RIFF", 4);
    writeLittleEndian(out, 36 + frames * channels * 2, 4);
    out.write("WAVEfmt ", 8);
    writeLittleEndian(out, 16, 4);
    writeLittleEndian(out, 1, 2); // PCM
    writeLittleEndian(out, channels, 2);
    writeLittleEndian(out, rate, 4);
    writeLittleEndian(out, rate * channels * 2, 4);
    writeLittleEndian(out, channels * 2, 2);
    writeLittleEndian(out, 16, 2);
    out.write("data", 4);
    writeLittleEndian(out, frames * channels * 2, 4);
    for (uint32_t i = 0; i < frames; ++i) {
        const double value = amplitude * std::sin(2.0 * std::numbers::pi * frequency * i / rate);
        const auto sample = uint32_t(uint16_t(int16_t(std::lround(value * 32767.0))));
        writeLittleEndian(out, sample, 2);
        writeLittleEndian(out, sample, 2);
    }
    m_files.push_back(path);
    return path;
}

bool PulseAudioSession::playTone(double frequency, double seconds, double amplitude) {
    const std::string file = writeTone(frequency, seconds, amplitude);
    const auto bound = std::chrono::milliseconds(int(seconds * 1000) + 5000);
    return runCommand({"paplay", "--server=" + m_server, "--device=" + std::string(sinkName), file},
                      bound) == 0;
}

bool PulseAudioSession::startTone(double frequency, double seconds, double amplitude,
                                  const std::string& sink) {
    const std::string file = writeTone(frequency, seconds, amplitude);
    m_players.push_back(std::make_unique<ChildProcess>(
        std::vector<std::string>{"paplay", "--server=" + m_server, "--device=" + sink, file},
        ChildProcess::Options{}));
    return m_players.back()->pid() > 0;
}

bool PulseAudioSession::addDeviceSound(const std::string& sink, const std::string& source,
                                       const std::string& description) {
    const std::string server = "--server=" + m_server;
    return runCommand({"pactl", server, "load-module", "module-null-sink", "sink_name=" + sink,
                       "norewinds=1"},
                      5000ms) == 0 &&
           runCommand({"pactl", server, "load-module", "module-remap-source",
                       "master=" + sink + ".monitor", "source_name=" + source,
                       "source_properties=\"device.description='" + description + "'\""},
                      5000ms) == 0;
}

std::vector<int16_t> PulseAudioSession::recordMonitor(double seconds) {
    const std::string path = m_runtimeDir + "/monitor-" + std::to_string(m_files.size()) + ".raw";
    m_files.push_back(path);
    ChildProcess::Options options;
    options.stdoutPath = path;
    ChildProcess recorder({"parec", "--server=" + m_server, "--device=" + monitorSource(), "--raw",
                           "--format=s16le", "--rate=48000", "--channels=2", "--latency-msec=20"},
                          options);
    const auto wanted = std::uintmax_t(seconds * 48000) * 2 * sizeof(int16_t);
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(int(seconds * 1000)) + 10s;
    auto arrived = [&path]() {
        std::error_code error;
        const auto size = std::filesystem::file_size(path, error);
        return error ? std::uintmax_t(0) : size;
    };
    while (arrived() < wanted && recorder.isRunning() &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(10ms);
    recorder.stop();
    std::ifstream in(path, std::ios::binary);
    std::vector<int16_t> samples;
    int16_t sample = 0;
    while (in.read(reinterpret_cast<char*>(&sample), sizeof sample))
        samples.push_back(sample);
    return samples;
}
