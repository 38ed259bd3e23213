#include "core/model/RecordingError.h"
#include "core/recording/engines/ScreenCaptureEngine.h"
#include "media/VideoFrame.h"
#include "platform/wayland/PortalScreenCast.h"
#include "platform/wayland/WaylandRecordingEngineFactory.h"
#include "support/ChildProcess.h"
#include "support/CiSkipPolicy.h"
#include "support/DBusSession.h"
#include "support/EventLoop.h"
#include "support/PipeWireSession.h"
#include "support/TextFiles.h"

#include <QCoro/QCoroTask>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr uid_t nobody = 65534; // sway refuses to run as root

std::string missingDesktopTool() {
    for (const char* tool : {"sway", "setpriv"})
        if (!findExecutable(tool))
            return tool;
    for (const char* program :
         {"/usr/libexec/xdg-desktop-portal", "/usr/libexec/xdg-desktop-portal-wlr"})
        if (::access(program, X_OK) != 0)
            return std::filesystem::path(program).filename().string();
    return {};
}

// A headless sway desktop drawn by pixman, as an unprivileged user, with the desktop portal and
// its wlroots backend on the test's bus, sharing the one output without asking.
class SwayDesktop {
public:
    SwayDesktop() {
        char folder[] = "/tmp/tq-sway-XXXXXX";
        if (!::mkdtemp(folder))
            return;
        m_folder = folder;
        const std::string runtime = m_folder + "/run";
        ::chmod(m_folder.c_str(), 0755);
        ::mkdir(runtime.c_str(), 0700);
        if (::chown(runtime.c_str(), nobody, nobody) != 0)
            return;
        std::ofstream(m_folder + "/sway.config") << "output HEADLESS-1 resolution 640x480\n";
        std::filesystem::create_directories(m_folder + "/config/xdg-desktop-portal-wlr");
        std::ofstream(m_folder + "/config/xdg-desktop-portal-wlr/config")
            << "[screencast]\nchooser_type=none\noutput_name=HEADLESS-1\n";

        ChildProcess::Options sway;
        sway.environment = {{"XDG_RUNTIME_DIR", runtime},
                            {"WLR_BACKENDS", "headless"},
                            {"WLR_LIBINPUT_NO_DEVICES", "1"},
                            {"WLR_RENDERER", "pixman"}};
        sway.unsetEnvironment = {"DISPLAY", "WAYLAND_DISPLAY"};
        sway.stderrPath = m_folder + "/sway.log";
        m_sway = ChildProcess({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                               "sway", "-c", m_folder + "/sway.config"},
                              sway);
        const std::string socket = runtime + "/wayland-1";
        if (!waitUntil([&] { return std::filesystem::exists(socket); }, 10s)) {
            m_error = "sway did not start: " + readText(m_folder + "/sway.log");
            return;
        }
        // The portals run as root, which may use the unprivileged user's socket.
        ChildProcess::Options portal;
        portal.environment = {{"WAYLAND_DISPLAY", socket},
                              {"XDG_CURRENT_DESKTOP", "sway"},
                              {"XDG_CONFIG_HOME", m_folder + "/config"}};
        portal.unsetEnvironment = {"DISPLAY"};
        portal.stderrPath = m_folder + "/xdpw.log";
        m_backend =
            ChildProcess({"/usr/libexec/xdg-desktop-portal-wlr", "-l", "INFO", "-r"}, portal);
        m_portalOptions = portal;
        m_portalOptions.stderrPath = m_folder + "/portal.log";
        m_ready = true;
    }
    // Starts the desktop portal once its wlroots backend is on the bus: a portal that looks
    // for it earlier has the bus start one of its own, without the desktop's socket.
    bool startPortal(const QDBusConnection& bus) {
        const QString backend = QStringLiteral("org.freedesktop.impl.portal.desktop.wlr");
        if (!waitUntil([&] { return bus.interface()->isServiceRegistered(backend).value(); },
                       10s)) {
            m_error = "xdg-desktop-portal-wlr did not come on the bus: " + backendLog();
            return false;
        }
        m_portal = ChildProcess({"/usr/libexec/xdg-desktop-portal", "-r"}, m_portalOptions);
        // Asked before it is there, the bus would start a portal of its own (that ours then
        // replaces mid-call): nothing is asked until ours has the name.
        const QString portal = QStringLiteral("org.freedesktop.portal.Desktop");
        if (!waitUntil(
                [&] { return int(bus.interface()->servicePid(portal).value()) == m_portal.pid(); },
                10s)) {
            m_error = "xdg-desktop-portal did not come on the bus: " + portalLog();
            return false;
        }
        return true;
    }
    ~SwayDesktop() {
        m_portal.stop();
        m_backend.stop();
        m_sway.stop();
        if (!m_folder.empty())
            std::filesystem::remove_all(m_folder);
    }

    bool isReady() const { return m_ready; }
    const std::string& error() const { return m_error; }
    std::string backendLog() const { return readText(m_folder + "/xdpw.log"); }
    std::string portalLog() const { return readText(m_folder + "/portal.log"); }

private:
    bool m_ready = false;
    std::string m_error;
    std::string m_folder;
    ChildProcess m_sway;
    ChildProcess m_backend;
    ChildProcess m_portal;
    ChildProcess::Options m_portalOptions;
};

} // namespace

// The same client code against the real ScreenCast portal of a wlroots desktop: the session
// starts without a dialog, and its output records at the output's size. Where the machine has
// no GPU the portal cannot start the cast, and the test says so instead.
TEST(SwayPortalTest, RecordsTheOutputThroughTheRealPortal) {
    REQUIRE_NOTHING_MISSING(missingDesktopTool());
    START_DBUS(session);
    START_PIPEWIRE(pipewire);
    SwayDesktop desktop;
    ASSERT_TRUE(desktop.isReady()) << desktop.error();
    const QDBusConnection bus = QDBusConnection::connectToBus(
        QString::fromStdString(session.address()), QStringLiteral("sway-portal-test"));
    ASSERT_TRUE(bus.isConnected());
    ASSERT_TRUE(desktop.startPortal(bus)) << desktop.error();
    ASSERT_TRUE(waitUntil(
        [&] { return PortalScreenCast::availableSourceTypes(bus, 500ms).has_value(); }, 15s))
        << "the desktop portal did not offer ScreenCast within 15 s";

    auto token = std::make_shared<QString>();
    WaylandRecordingEngineFactory factory(
        bus, {[token] { return *token; }, [token](const QString& value) { *token = value; }});
    SCShareableContent content;
    try {
        content = factory.fetchShareableContent();
    } catch (const RecordingError& error) {
        const std::string log = desktop.backendLog();
        if (log.find("unable to receive a valid format from wlr_screencopy") != std::string::npos)
            GTEST_SKIP() << CiSkipPolicy::allowedReason;
        FAIL() << error.errorDescription().toStdString() << "\n"
               << log << "\n"
               << desktop.portalLog();
    }
    ASSERT_EQ(content.displays.size(), 1u);
    EXPECT_EQ(content.displays[0].frame.size, (Size{640, 480}));

    auto engine = factory.makeScreenCaptureEngine();
    engine->setAvailableContent(content);
    const RecordingMode mode = RecordingMode::screen(content.displays[0]);
    engine->configureStream(
        engine->createFilter(mode, RecordingConfiguration(mode, QDir::tempPath())), mode,
        ResolutionMode::normal, 30, false, BackgroundType::black, false);
    std::atomic<int> frames{0};
    std::atomic<int> width{0};
    engine->setFrameHandler([&](const VideoFrameHandle& frame, const VideoSampleTiming&) {
        width = frame->width();
        ++frames;
    });
    QCoro::waitFor(engine->startCapture());
    EXPECT_TRUE(waitUntil([&] { return frames.load() >= 1; }, 5s));
    QCoro::waitFor(engine->stopCapture());
    EXPECT_EQ(width.load(), 640);
    QDBusConnection::disconnectFromBus(bus.name());
}
