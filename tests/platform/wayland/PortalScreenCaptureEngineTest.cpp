#include "platform/wayland/PortalScreenCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "media/VideoFrame.h"
#include "platform/wayland/WaylandRecordingEngineFactory.h"
#include "support/DBusSession.h"
#include "support/EventLoop.h"
#include "support/PipeWireSession.h"
#include "support/ScreenCastPortalStandIn.h"

#include <QCoro/QCoroTask>
#include <QDBusConnection>
#include <QDir>

#include <gtest/gtest.h>

#include <functional>
#include <mutex>

using namespace std::chrono_literals;

namespace {

// The restore token kept between "runs" of the program.
struct MemoryTokens {
    std::shared_ptr<QString> token = std::make_shared<QString>();
    PortalSessionKeeper::TokenStore store() const {
        return {[t = token] { return *t; }, [t = token](const QString& value) { *t = value; }};
    }
};

class PortalScreenCaptureEngineTest : public ::testing::Test {
protected:
    static constexpr int width = 320;
    static constexpr int height = 240;

    void SetUp() override {
        REQUIRE_DBUS();
        REQUIRE_PIPEWIRE();
        session = std::make_unique<DBusSession>();
        ASSERT_TRUE(session->isReady()) << session->error();
        pipewire = std::make_unique<PipeWireSession>();
        ASSERT_TRUE(pipewire->isReady()) << pipewire->error();
        const auto id = pipewire->startVideoSource("tq_monitor", "red", width, height);
        ASSERT_TRUE(id) << "the test source did not appear in PipeWire";
        node = *id;
        // A connection of our own: Qt keeps the first session bus of a process for good.
        bus = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(QString::fromStdString(session->address()),
                                          QStringLiteral("portal-test-%1").arg(++connections)));
        ASSERT_TRUE(bus->isConnected());
    }
    void TearDown() override {
        portal.reset();
        if (bus)
            QDBusConnection::disconnectFromBus(bus->name());
        bus.reset();
        pipewire.reset();
        session.reset();
    }

    void startPortal(ScreenCastPortalStandIn::Options options) {
        portal.reset();
        options.node = node;
        options.width = width;
        options.height = height;
        options.pipewireSocket = pipewire->socketPath();
        portal =
            std::make_unique<ScreenCastPortalStandIn>(TAVELQUISTON_PORTAL_STANDIN_PATH, options);
        ASSERT_TRUE(portal->isReady()) << portal->error();
    }

    std::unique_ptr<DBusSession> session;
    std::unique_ptr<PipeWireSession> pipewire;
    std::unique_ptr<QDBusConnection> bus;
    std::unique_ptr<ScreenCastPortalStandIn> portal;
    uint32_t node = 0;
    static inline int connections = 0;
};

ScreenCastPortalStandIn::Options
portalOptions(const std::function<void(ScreenCastPortalStandIn::Options&)>& change) {
    ScreenCastPortalStandIn::Options options;
    change(options);
    return options;
}

// Runs an engine's capture until `count` frames came (or five seconds passed) and gives them.
template <typename Engine>
std::vector<VideoFrameHandle> captureFrames(Engine& engine, size_t count) {
    std::mutex mutex;
    std::vector<VideoFrameHandle> frames;
    engine.setFrameHandler([&](const VideoFrameHandle& frame, const VideoSampleTiming&) {
        std::lock_guard lock(mutex);
        frames.push_back(frame);
    });
    QCoro::waitFor(engine.startCapture());
    EXPECT_TRUE(waitUntil(
        [&] {
            std::lock_guard lock(mutex);
            return frames.size() >= count;
        },
        5000ms));
    QCoro::waitFor(engine.stopCapture());
    std::lock_guard lock(mutex);
    return frames;
}

bool contains(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
}

} // namespace

// The first run asks for the pointer as metadata and a persistent session, and keeps the token
// the portal gives; the shared monitor is the one display, and an area of it records as a crop
// of the stream in the source's colour. The next run, with nobody to ask, starts from the kept
// token, which is then replaced by the new one.
TEST_F(PortalScreenCaptureEngineTest, RecordsAnAreaOfTheSharedMonitorAndRestoresWithTheToken) {
    startPortal({});
    MemoryTokens tokens;
    {
        WaylandRecordingEngineFactory factory(*bus, tokens.store());
        const SCShareableContent content = factory.fetchShareableContent();
        ASSERT_EQ(content.displays.size(), 1u);
        EXPECT_EQ(content.displays[0].displayID, node);
        EXPECT_EQ(content.displays[0].frame, Rect(0, 0, width, height));
        EXPECT_FALSE(tokens.token->isEmpty());
        EXPECT_TRUE(contains(portal->calls(), "cursor_mode=4 persist_mode=2 restore_token="));

        auto engine = factory.makeScreenCaptureEngine();
        engine->setAvailableContent(content);
        const RecordingMode mode =
            RecordingMode::screenArea(content.displays[0], Rect(20, 40, 100, 60));
        const RecordingConfiguration configuration(mode, QDir::tempPath());
        auto filter = engine->createFilter(mode, configuration);
        engine->configureStream(filter, mode, ResolutionMode::normal, 30, false,
                                BackgroundType::black, false);
        ASSERT_EQ(engine->configuration(), (SCStreamConfiguration{100, 60}));

        const std::vector<VideoFrameHandle> frames = captureFrames(*engine, 10);
        ASSERT_FALSE(frames.empty());
        const VideoFrame& last = *frames.back();
        EXPECT_EQ(last.width(), 100);
        EXPECT_EQ(last.height(), 60);
        const uint8_t* p = last.bytes() + size_t(30) * size_t(last.bytesPerRow()) + 50 * 4;
        EXPECT_TRUE(p[2] > 200 && p[1] < 40 && p[0] < 40);
    }

    const QString firstToken = *tokens.token;
    startPortal(portalOptions([&](auto& o) { o.requiredToken = firstToken.toStdString(); }));
    WaylandRecordingEngineFactory again(*bus, tokens.store());
    EXPECT_EQ(again.fetchShareableContent().displays.size(), 1u);
    EXPECT_TRUE(contains(portal->calls(), "restore_token=" + firstToken.toStdString()));
    EXPECT_FALSE(tokens.token->isEmpty());
    EXPECT_NE(*tokens.token, firstToken);
}

// A user who says no, or a token the desktop no longer knows with nobody to ask, is a
// screen recording permission error, not a hang.
TEST_F(PortalScreenCaptureEngineTest, ARefusalIsAPermissionError) {
    for (const ScreenCastPortalStandIn::Options& options :
         {portalOptions([](auto& o) { o.refuse = true; }),
          portalOptions([](auto& o) { o.requiredToken = "a-token-never-given"; })}) {
        startPortal(options);
        MemoryTokens tokens;
        *tokens.token = QStringLiteral("stale");
        WaylandRecordingEngineFactory factory(*bus, tokens.store());
        try {
            factory.fetchShareableContent();
            ADD_FAILURE() << "the refused session started";
        } catch (const RecordingError& error) {
            EXPECT_EQ(error.kind(), RecordingError::Kind::permissionDenied);
        }
        EXPECT_TRUE(contains(portal->calls(), "Start refused"));
    }
}

// When the desktop ends the session (the user stopped sharing), the running stream reports one
// error, and the next start asks for a new session.
TEST_F(PortalScreenCaptureEngineTest, ASessionTheDesktopClosesStopsTheStreamOnce) {
    startPortal(portalOptions([](auto& o) { o.closeAfterMs = 1500; }));
    MemoryTokens tokens;
    WaylandRecordingEngineFactory factory(*bus, tokens.store());
    const SCShareableContent content = factory.fetchShareableContent();
    auto engine = factory.makeScreenCaptureEngine();
    engine->setAvailableContent(content);
    const RecordingMode mode = RecordingMode::screen(content.displays.at(0));
    const RecordingConfiguration configuration(mode, QDir::tempPath());
    engine->configureStream(engine->createFilter(mode, configuration), mode, ResolutionMode::normal,
                            30, false, BackgroundType::black, false);
    std::mutex mutex;
    std::vector<StreamError> errors;
    engine->setErrorHandler([&](const StreamError& error) {
        std::lock_guard lock(mutex);
        errors.push_back(error);
    });
    QCoro::waitFor(engine->startCapture());
    EXPECT_TRUE(waitUntil(
        [&] {
            std::lock_guard lock(mutex);
            return !errors.empty();
        },
        5000ms));
    processEventsFor(300ms);
    QCoro::waitFor(engine->stopCapture());
    {
        std::lock_guard lock(mutex);
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors[0].domain, QStringLiteral("ScreenCastPortal"));
    }
    // A restart (the recovery path) opens a new session and records again.
    QCoro::waitFor(engine->startCapture());
    QCoro::waitFor(engine->stopCapture());
    const auto calls = portal->calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), std::string("Start")), 2);
}

// A window picked in the desktop's dialog is the content's one window, recorded alone at its
// size with no place on the desktop; a desktop that cannot send the pointer as metadata is asked
// to draw it into the picture.
TEST_F(PortalScreenCaptureEngineTest, RecordsTheWindowPickedInTheDesktopsDialog) {
    startPortal(portalOptions([](auto& o) {
        o.shareWindow = true;
        o.cursorModes = 3; // hidden and embedded only
    }));
    MemoryTokens tokens;
    WaylandRecordingEngineFactory factory(*bus, tokens.store());
    const SCShareableContent content = factory.fetchShareableContent();
    EXPECT_TRUE(content.displays.empty());
    ASSERT_EQ(content.windows.size(), 1u);
    EXPECT_EQ(content.windows[0].windowID, node);
    EXPECT_TRUE(contains(portal->calls(), "SelectSources types=3 cursor_mode=2"));

    auto engine = factory.makeScreenCaptureEngine();
    engine->setAvailableContent(content);
    const RecordingMode mode = RecordingMode::window(content.windows[0]);
    const RecordingConfiguration configuration(mode, QDir::tempPath());
    engine->configureStream(engine->createFilter(mode, configuration), mode, ResolutionMode::low,
                            30, false, BackgroundType::black, false);
    EXPECT_EQ(engine->configuration(), (SCStreamConfiguration{width / 2, height / 2}));
    // The window's own space, which its stream's pointer positions count in.
    EXPECT_EQ(engine->captureRectInScreenSpace(), Rect(0, 0, width, height));
    const std::vector<VideoFrameHandle> frames = captureFrames(*engine, 5);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames.back()->width(), width / 2);
    EXPECT_EQ(frames.back()->height(), height / 2);

    // Several windows cannot be asked for by id on Wayland.
    const RecordingMode several = RecordingMode::windows({content.windows[0], content.windows[0]});
    EXPECT_THROW(engine->createFilter(several, RecordingConfiguration(several, QDir::tempPath())),
                 RecordingError);
}
