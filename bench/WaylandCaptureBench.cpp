// CPU per recorded second of screen capture at 1920x1080 and 60 frames/s through the ScreenCast
// portal and PipeWire, against the X11 engine's in the same run, and the time from asking for
// the content to the first frame (the portal's round trips with a restore token, connecting
// the stream) against the X11 engine's. Engine level: frames are counted, not encoded, so the
// figure is what capture alone costs this process. The X11 engine reads a private Xvfb whose
// screen a client repaints every 16 ms; the portal engine reads a PipeWire node of a moving
// GStreamer test picture at 60 frames/s, shared by the stand-in portal on a private bus. The
// producers are other processes and not counted; the X server's and the PipeWire daemon's CPU
// are shown beside ours (the X server also draws the moving picture). TQ_BENCH_SECONDS sets the
// length of each capture (5 s unless given). Needs Xvfb, pipewire, wireplumber and GStreamer's
// PipeWire elements; says what is missing otherwise.

#include "core/recording/engines/ScreenCaptureEngine.h"
#include "platform/wayland/WaylandRecordingEngineFactory.h"
#include "platform/x11/X11RecordingEngineFactory.h"
#include "support/DBusSession.h"
#include "support/EventLoop.h"
#include "support/PipeWireSession.h"
#include "support/ScreenAnimation.h"
#include "support/ScreenCastPortalStandIn.h"
#include "support/XvfbSession.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QDir>

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

const double captureSeconds = [] {
    const char* given = std::getenv("TQ_BENCH_SECONDS");
    return given && std::atof(given) > 0 ? std::atof(given) : 5.0;
}();

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// CPU seconds another process has used so far (user and system), from /proc.
double otherProcessCpuSeconds(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto end = text.rfind(')');
    if (end == std::string::npos)
        return 0;
    std::istringstream fields(text.substr(end + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14 || i == 15)
            ticks += std::stod(field);
        if (i == 15)
            break;
    }
    return ticks / double(sysconf(_SC_CLK_TCK));
}

struct Figures {
    double cpuPerSecond = 0;
    double serverCpuPerSecond = 0; // the X server's or the PipeWire daemon's
    double framesPerSecond = 0;
    double startMilliseconds = 0;
    double contentMilliseconds = 0;   // of the start: listing the content (the portal's session)
    double configureMilliseconds = 0; // of the start: preparing the stream
};

// Lists the content, prepares and starts the screen engine on the first display, waits for the
// first frame, then captures for `captureSeconds`.
std::optional<Figures> measure(RecordingEngineFactory& factory, int serverPid) {
    const auto begin = std::chrono::steady_clock::now();
    std::atomic<int64_t> frames{0};
    std::atomic<int64_t> firstFrameNanoseconds{0};
    auto since = [&] {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
            .count();
    };
    const SCShareableContent content = factory.fetchShareableContent();
    if (content.displays.empty())
        return std::nullopt;
    const double contentDone = since();
    auto engine = factory.makeScreenCaptureEngine();
    engine->setAvailableContent(content);
    const RecordingMode mode = RecordingMode::screen(content.displays.front());
    const RecordingConfiguration configuration(mode, QDir::tempPath());
    engine->configureStream(engine->createFilter(mode, configuration), mode, ResolutionMode::normal,
                            60, false, BackgroundType::black, false);
    const double configureDone = since();
    engine->setFrameHandler([&](const VideoFrameHandle&, const VideoSampleTiming&) {
        if (frames++ == 0)
            firstFrameNanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                        std::chrono::steady_clock::now() - begin)
                                        .count();
    });
    QCoro::waitFor(engine->startCapture());
    if (!waitUntil([&] { return frames.load() > 0; }, 5000ms))
        return std::nullopt;
    const double cpuBefore = processCpuSeconds();
    const double serverBefore = otherProcessCpuSeconds(serverPid);
    const int64_t framesBefore = frames.load();
    processEventsFor(std::chrono::milliseconds(int(captureSeconds * 1000)));
    const double cpu = processCpuSeconds() - cpuBefore;
    const double serverCpu = otherProcessCpuSeconds(serverPid) - serverBefore;
    const int64_t captured = frames.load() - framesBefore;
    QCoro::waitFor(engine->stopCapture());
    return Figures{cpu / captureSeconds,
                   serverCpu / captureSeconds,
                   double(captured) / captureSeconds,
                   double(firstFrameNanoseconds.load()) / 1e6,
                   contentDone,
                   configureDone - contentDone};
}

void print(const char* label, const Figures& figures) {
    fmt::print("{:<20} {:6.3f} CPU s per recorded s (server {:6.3f})  {:5.1f} frames/s  first "
               "frame after {:6.1f} ms (content {:5.1f}, stream {:5.1f})\n",
               label, figures.cpuPerSecond, figures.serverCpuPerSecond, figures.framesPerSecond,
               figures.startMilliseconds, figures.contentMilliseconds,
               figures.configureMilliseconds);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::string missing = XvfbSession::missingTool({});
    if (missing.empty())
        missing = PipeWireSession::missingTool();
    if (missing.empty())
        missing = DBusSession::missingTool();
    if (!missing.empty()) {
        fmt::print("⚠️ '{}' is not installed; run scripts/install-deps.sh\n", missing);
        return 0;
    }

    std::optional<Figures> x11;
    {
        XvfbSession xvfb;
        if (!xvfb.isReady()) {
            fmt::print("❌ Xvfb: {}\n", xvfb.error());
            return 1;
        }
        ScreenAnimation animation(16ms);
        X11RecordingEngineFactory factory;
        x11 = measure(factory, xvfb.serverPid());
    }

    DBusSession session;
    PipeWireSession pipewire;
    if (!session.isReady() || !pipewire.isReady()) {
        fmt::print("❌ D-Bus or PipeWire did not start: {}{}\n", session.error(), pipewire.error());
        return 1;
    }
    const auto node = pipewire.startVideoSource("bench_monitor", "ball", 1920, 1080, 60);
    if (!node) {
        fmt::print("❌ The test source did not appear in PipeWire\n");
        return 1;
    }
    ScreenCastPortalStandIn::Options options;
    options.node = *node;
    options.width = 1920;
    options.height = 1080;
    options.pipewireSocket = pipewire.socketPath();
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH, options);
    if (!portal.isReady()) {
        fmt::print("❌ {}\n", portal.error());
        return 1;
    }
    const QDBusConnection bus = QDBusConnection::connectToBus(
        QString::fromStdString(session.address()), QStringLiteral("bench"));
    auto token = std::make_shared<QString>();
    const PortalSessionKeeper::TokenStore tokens{[token] { return *token; },
                                                 [token](const QString& value) { *token = value; }};
    // A first session, as the user's first recording, leaves the token the measured one uses.
    WaylandRecordingEngineFactory(bus, tokens).fetchShareableContent();
    WaylandRecordingEngineFactory factory(bus, tokens);
    const std::optional<Figures> wayland = measure(factory, pipewire.daemonPid());

    if (!x11 || !wayland) {
        fmt::print("❌ An engine delivered no frame within 5 s\n");
        return 1;
    }
    fmt::print("\nScreen capture at 1920x1080, 60 frames/s asked, {} s each\n", captureSeconds);
    print("X11 engine", *x11);
    print("portal + PipeWire", *wayland);
    // The X server grabs straight into our frames' shared memory, so its share of the copy
    // shows as the server's CPU; PipeWire's producer copies in its own process instead.
    fmt::print("portal CPU per recorded second = {:.2f} x the X11 engine's (target within 1.2)\n",
               wayland->cpuPerSecond / x11->cpuPerSecond);
    fmt::print("with the server's CPU: {:.2f} x\n",
               (wayland->cpuPerSecond + wayland->serverCpuPerSecond) /
                   (x11->cpuPerSecond + x11->serverCpuPerSecond));
    fmt::print("portal start with a restore token = {:.1f} ms = {:.2f} x the X11 engine's start "
               "(target under 500 ms)\n",
               wayland->startMilliseconds, wayland->startMilliseconds / x11->startMilliseconds);
    return 0;
}
