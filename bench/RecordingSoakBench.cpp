// A long recording under everything a session throws at it: `tavelquiston-cli record` of one
// 1920x1080 monitor at 30 frames/s with a new picture at every frame, the test camera shown over
// the screen, a microphone and system audio from a private PulseAudio, paused and resumed 50
// times, and two stream recoveries forced (the X server drops the shared memory the screen is
// grabbed through; later the recorded monitor goes away and comes back). The screen flashes with
// a click in the sound once a second. Reports the recorder's resident memory some seconds in and
// just before the stop (the growth between is the figure), the frames dropped, and the offset
// between flash and click at the start and at the end of the movie. TQ_SOAK_SECONDS sets the
// length (1200 unless given), TQ_SOAK_PAUSES the pause cycles (50); with TQ_SOAK_CHECK=1 the
// figures are checked against their targets and the exit status says whether they held (the
// ctest runs it that way for a minute).

#include "media/FlashesAndClicks.h"
#include "media/MovieProbe.h"
#include "platform/x11/X11Connection.h"
#include "support/ChildProcess.h"
#include "support/FlashAndClickScene.h"
#include "support/PulseAudioSession.h"
#include "support/SharedMemoryEviction.h"
#include "support/XvfbSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

double setting(const char* name, double fallback) {
    const char* given = std::getenv(name);
    return given && std::atof(given) > 0 ? std::atof(given) : fallback;
}

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Resident memory of a process in MB, from /proc; negative when it is gone.
double residentMB(int pid) {
    std::ifstream status(fmt::format("/proc/{}/status", pid));
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atof(line.c_str() + 6) / 1024.0;
    return -1;
}

// The sum of the first number of every line matching `pattern` (one capture group).
long sumOf(const std::string& text, const std::string& pattern) {
    long total = 0;
    const std::regex expression(pattern);
    for (auto it = std::sregex_iterator(text.begin(), text.end(), expression);
         it != std::sregex_iterator(); ++it)
        total += std::atol((*it)[1].str().c_str());
    return total;
}

long countOf(const std::string& text, const std::string& needle) {
    long count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++count;
    return count;
}

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
    const auto deadline = Clock::now() + bound;
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

const std::string rightMonitor = "1920/508x1080/286+1920+0";

int fail(const std::string& why) {
    fmt::print(stderr, "❌ {}\n", why);
    return 1;
}

} // namespace

int main() {
    const double seconds = setting("TQ_SOAK_SECONDS", 1200);
    const bool check = setting("TQ_SOAK_CHECK", 0) > 0;
    const int cycles = int(setting("TQ_SOAK_PAUSES", 50));
    const std::string folder = fmt::format("/tmp/tavelquiston-soak-{}", getpid());
    std::filesystem::create_directories(folder);

    XvfbSession::Options screen;
    screen.twoMonitors = true;
    screen.windowManager = true;
    for (const std::string& missing :
         {XvfbSession::missingTool(screen), PulseAudioSession::missingTool(),
          findExecutable("pacat") ? std::string() : std::string("pacat"),
          findExecutable("pactl") ? std::string() : std::string("pactl")})
        if (!missing.empty()) {
            fmt::print(stderr, "'{}' is not installed\n", missing);
            return runningUnderCI() ? 1 : 77; // 77: skipped, for ctest
        }
    XvfbSession session(screen);
    if (!session.isReady())
        return fail("Xvfb: " + session.error());
    PulseAudioSession pulse;
    if (!pulse.isReady())
        return fail("PulseAudio: " + pulse.error());
    // A real (non-monitor) source stands in for the microphone; it hears what the sink plays.
    if (runCommand({"pactl", "load-module", "module-remap-source",
                    fmt::format("master={}", pulse.monitorSource()), "source_name=soak_mic"},
                   10s) != 0)
        return fail("no microphone stand-in");
    // A flash and a click once a second mark where picture and sound are together; a bar
    // moving at the bottom makes every frame a new picture.
    FlashAndClickScene scene(PulseAudioSession::sinkName, true);

    const std::string out = folder + "/stdout.txt", err = folder + "/stderr.txt";
    ChildProcess::Options options;
    options.stdoutPath = out;
    options.stderrPath = err;
    options.environment["TAVELQUISTON_TEST_CAMERA"] = "1";
    options.environment["DBUS_SESSION_BUS_ADDRESS"] = "disabled:";
    options.environment["QT_QPA_PLATFORM"] = "xcb";
    // TQ_SOAK_CLI runs another build of the command line (a copy that a rebuild leaves alone).
    const char* cli =
        std::getenv("TQ_SOAK_CLI") ? std::getenv("TQ_SOAK_CLI") : TAVELQUISTON_CLI_PATH;
    ChildProcess recorder({cli, "record", "--output", folder, "--fps", "30", "--display",
                           std::to_string(X11Connection().atom("right")), "--camera", "Test Camera",
                           "--microphone", "soak_mic", "--system-audio"},
                          options);
    if (!waitFor(
            [&] {
                return readText(out).find("Successfully appended video frame #1") !=
                       std::string::npos;
            },
            60s))
        return fail("the recording did not start: " + readText(err));
    const auto started = Clock::now();
    const auto at = [&](double offset) {
        return started +
               std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(offset));
    };
    // The figure starts once the encoder, the pools and the camera are warmed up.
    const double warmUp = std::min(10.0, seconds / 6);
    std::this_thread::sleep_until(at(warmUp));
    const double startMB = residentMB(recorder.pid());

    // Pauses and the two outages spread over what is left, the last pause ended well before
    // the stop.
    struct Step {
        double when;
        std::function<void()> act;
    };
    std::vector<Step> steps;
    const double span = seconds - warmUp - 4;
    for (int i = 0; i < cycles; ++i) {
        const double begin = warmUp + span * (i + 0.25) / cycles;
        steps.push_back({begin, [&] { kill(recorder.pid(), SIGUSR1); }});
        steps.push_back(
            {begin + std::min(0.4, span / cycles / 3), [&] { kill(recorder.pid(), SIGUSR1); }});
    }
    // The two outages: first the X server drops the shared memory the screen is grabbed
    // through, then the recorded monitor goes away until the stream has noticed, and comes back.
    int outages = 0;
    const auto streamErrors = [&] { return countOf(readText(out), "🛑 SCStream error"); };
    steps.push_back({warmUp + span / 3 + span / cycles * 0.6, [&] {
                         const SharedMemoryEviction eviction = detachLargestClientsSharedMemory();
                         if (!eviction.error.empty())
                             fmt::print(stderr, "⚠️ {}\n", eviction.error);
                         outages += eviction.detached > 0 ? 1 : 0;
                     }});
    steps.push_back(
        {warmUp + span * 2 / 3 + span / cycles * 0.6, [&] {
             const long before = streamErrors();
             runCommand({"xrandr", "--delmonitor", "right"}, 5s);
             ++outages;
             if (!waitFor([&] { return streamErrors() > before; }, 5s))
                 fmt::print(stderr, "⚠️ the monitor's removal went unnoticed\n");
             if (runCommand({"xrandr", "--setmonitor", "right", rightMonitor, "none"}, 5s) != 0)
                 fmt::print(stderr, "⚠️ the monitor could not be restored\n");
         }});
    std::sort(steps.begin(), steps.end(),
              [](const Step& a, const Step& b) { return a.when < b.when; });
    for (const Step& step : steps) {
        std::this_thread::sleep_until(at(step.when));
        step.act();
    }
    std::this_thread::sleep_until(at(seconds - 1));
    const double endMB = residentMB(recorder.pid());
    std::this_thread::sleep_until(at(seconds));
    kill(recorder.pid(), SIGTERM);
    const std::optional<int> status = recorder.waitForExit(120s);
    const std::string log = readText(out), errors = readText(err);
    if (status != 0)
        return fail(fmt::format("the recorder ended with {}: {}", status.value_or(-1), errors));

    std::string movie;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        if (line.size() > 4 && line.compare(line.size() - 4, 4, ".mov") == 0)
            movie = line;
    const auto probed = probeMovie(movie);
    if (!probed)
        return fail("no movie: " + movie);
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    if (!video)
        return fail("no picture in " + movie);
    // Each flash's offset to its click, over the first and the last ten seconds: the sound
    // reaches the sink a little after its flash is drawn (the player's buffers), so the offset
    // is not zero, but it must not move over the recording.
    int audioTracks = 0;
    for (const ProbedStream& stream : probed->streams)
        audioTracks += stream.type == AVMEDIA_TYPE_AUDIO ? 1 : 0;
    const FlashesAndClicks marks = findFlashesAndClicks(movie);
    const auto medianOffset = [&](double from, double to) -> std::optional<double> {
        std::vector<double> offsets;
        FlashesAndClicks part{{}, marks.clicks};
        for (double flash : marks.flashes)
            if (flash >= from && flash < to)
                part.flashes.push_back(flash);
        offsets = part.offsets();
        if (offsets.size() < 3)
            return std::nullopt;
        std::nth_element(offsets.begin(), offsets.begin() + long(offsets.size() / 2),
                         offsets.end());
        return offsets[offsets.size() / 2];
    };
    const std::optional<double> startOffset = medianOffset(0, 10);
    const std::optional<double> endOffset =
        medianOffset(video->endSeconds - 10, video->endSeconds + 1);
    const double drift = startOffset && endOffset ? *endOffset - *startOffset : 1e9;
    const long writerDropped = sumOf(log, "Writer fell behind: (\\d+) video frames");
    const long audioDropped = sumOf(log, "video frames and (\\d+) audio buffers dropped");
    const long ticksMissed = sumOf(log, "idle ticks, (\\d+) ticks missed");
    const long cameraDropped = countOf(log, "Camera frame dropped");
    const long recoveries = countOf(log, "✅ Stream recovery started");
    const long pauses = countOf(errors, "⏸️ Paused");
    const double frame = 1.0 / 30;

    fmt::print("recording      {:.0f} s asked, {:.1f} s in the movie, {} sound tracks\n", seconds,
               video->endSeconds, audioTracks);
    fmt::print("pauses         {} of {}; stream recoveries {} of {}\n", pauses, cycles, recoveries,
               outages);
    fmt::print("resident       {:.1f} MB at {:.0f} s, {:.1f} MB at the end: growth {:.1f} MB "
               "(target < 20)\n",
               startMB, warmUp, endMB, endMB - startMB);
    fmt::print("dropped        {} video frames and {} audio buffers by the writer, {} capture "
               "ticks missed, {} camera frames\n",
               writerDropped, audioDropped, ticksMissed, cameraDropped);
    fmt::print("A/V offset     {:+.1f} ms at the end, {:+.1f} ms at the start: moved by {:+.1f} ms "
               "(target within {:.1f}; {} flashes, {} clicks)\n",
               endOffset.value_or(NAN) * 1000, startOffset.value_or(NAN) * 1000, drift * 1000,
               frame * 1000, marks.flashes.size(), marks.clicks.size());
    fmt::print("movie          {}\n", movie);
    if (!check)
        return 0;

    int failures = 0;
    const auto expect = [&](bool held, const std::string& what) {
        if (!held) {
            fmt::print(stderr, "❌ {}\n", what);
            ++failures;
        }
    };
    expect(audioTracks >= 1, "no sound in the movie");
    expect(pauses == cycles, "not every pause was taken");
    expect(recoveries == outages, "not every outage was recovered");
    expect(endMB - startMB < 20, "resident memory grew by 20 MB or more");
    // The writer keeps up with 30 frames/s on a shared machine; a few frames lost to a busy
    // moment are tolerated, a writer that falls behind for good is not.
    expect(double(writerDropped) <= 0.01 * 30 * seconds, "the writer dropped over 1% of frames");
    expect(std::abs(drift) <= frame, "sound and picture moved apart by more than a frame");
    expect(endOffset && std::abs(*endOffset) <= 2 * frame,
           "sound and picture are more than two frames apart at the end");
    // Paused time and the outages are not in the movie; what is left is the rest.
    expect(video->endSeconds > seconds * 0.5 && video->endSeconds < seconds + 1,
           "the movie's length is not what was recorded");
    // What failed is left to look at.
    if (failures == 0)
        std::filesystem::remove_all(folder);
    return failures == 0 ? 0 : 1;
}
