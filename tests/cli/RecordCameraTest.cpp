#include "cli/CommandOutcome.h"
#include "cli/ListCommand.h"
#include "cli/RecordCommand.h"
#include "media/layers/LayerRecordingError.h"
#include "media/layers/MediaLayerRecordingManager.h"

#include "media/MovieProbe.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ShareableContent.h"
#include "support/CliRun.h"
#include "support/EventLoop.h"
#include "support/ScopedEnvironment.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <csignal>
#include <map>

using namespace std::chrono_literals;

namespace {

constexpr double cameraFrame = 1.0 / 30;

// A record run at 30 frames a second with the test camera.
struct CameraRecording : RecordRun {
    explicit CameraRecording(const std::vector<std::string>& extra, Environment environment = {})
        : RecordRun(joined({"--fps", "30"}, extra), withTestCamera(std::move(environment))) {}
};

struct Layers {
    ProbedStream screen;
    ProbedStream camera;
};

// Both layers' video streams, read back as a player reads them.
std::optional<Layers> probeLayers(const RecordingPackage& package) {
    if (!package.cameraVideoURL)
        return std::nullopt;
    const auto screen = probeMovie(package.screenVideoURL.toStdString());
    const auto camera = probeMovie(package.cameraVideoURL->toStdString());
    if (!screen || !camera || !screen->first(AVMEDIA_TYPE_VIDEO) ||
        !camera->first(AVMEDIA_TYPE_VIDEO))
        return std::nullopt;
    return Layers{*screen->first(AVMEDIA_TYPE_VIDEO), *camera->first(AVMEDIA_TYPE_VIDEO)};
}

} // namespace

// A separate-layers recording of 3 s makes the package: the dated folder, the hidden files, a
// manifest naming only what exists, both layers 3 s long, and the camera's first frame on the
// screen's time line.
TEST(RecordCameraTest, SeparateLayersMakeAnAlignedPackage) {
    START_XVFB(session, XvfbSession::desktop());
    ScreenAnimation animation;

    CameraRecording recording({"--duration", "3", "--camera", "Test Camera", "--separate-layers"});
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
    const QString folder = recording.packagePath();
    EXPECT_TRUE(QFileInfo(folder).fileName().contains(QRegularExpression(
        QStringLiteral("^Recording-\\d{4}-\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d$"))))
        << folder.toStdString();
    const QStringList files = QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    EXPECT_EQ(files,
              QStringList({".camera.mov", ".metadata.json", ".package.json", ".screen.mov"}));

    const QJsonObject manifest = readJsonObject((folder + "/.package.json").toStdString());
    ASSERT_FALSE(manifest.isEmpty());
    EXPECT_EQ(manifest.value("version").toString(), "1.0");
    EXPECT_TRUE(manifest.value("configuration").toObject().value("hasSeparateLayers").toBool());
    EXPECT_NEAR(manifest.value("configuration").toObject().value("duration").toDouble(), 3.0, 0.25);

    const RecordingPackage package = MediaLayerRecordingManager::loadPackage(folder);
    EXPECT_EQ(package.screenVideoURL, folder + "/.screen.mov");
    ASSERT_TRUE(package.cameraVideoURL.has_value());
    const auto layers = probeLayers(package);
    ASSERT_TRUE(layers.has_value());
    EXPECT_EQ(layers->camera.width, 1280);
    EXPECT_EQ(layers->camera.height, 720);
    EXPECT_NEAR(layers->screen.endSeconds, 3.0, cameraFrame + 0.25);
    // The camera stops with the screen, give or take the frame each was delivering.
    EXPECT_NEAR(layers->camera.endSeconds, layers->screen.endSeconds, 2 * cameraFrame);
    // Its first frame lies on the screen's time line, not at its own start.
    ASSERT_FALSE(layers->camera.packetTimes.empty());
    EXPECT_LE(layers->camera.packetTimes.front(), cameraFrame);
    // A camera at 30 frames/s drops nothing on its way to the file.
    EXPECT_GE(double(layers->camera.packetTimes.size()), layers->camera.endSeconds * 30 * 0.9);
    EXPECT_LT(layers->camera.largestGap(), 3 * cameraFrame);
}

// A pause of a second leaves no gap in either layer, and the two still end together.
TEST(RecordCameraTest, PauseKeepsTheLayersAligned) {
    START_XVFB(session, XvfbSession::desktop());
    ScreenAnimation animation;

    CameraRecording recording({"--duration", "2", "--camera", "Test Camera", "--separate-layers"});
    ASSERT_TRUE(recording.waitForOutput("Camera frame #5 append", 15s)) << recording.errors();
    std::this_thread::sleep_for(500ms);
    ASSERT_TRUE(recording.pauseFor(1s)) << recording.errors();
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();

    const auto layers =
        probeLayers(MediaLayerRecordingManager::loadPackage(recording.packagePath()));
    ASSERT_TRUE(layers.has_value());
    EXPECT_NEAR(layers->screen.endSeconds, 2.0, cameraFrame + 0.25);
    EXPECT_NEAR(layers->camera.endSeconds, layers->screen.endSeconds, 2 * cameraFrame);
    EXPECT_LT(layers->screen.largestGap(), 0.2);
    EXPECT_LT(layers->camera.largestGap(), 0.2);
}

// A camera unplugged during a separate-layers recording costs the camera layer its rest, with
// one warning; the screen layer goes on to the end and the package is complete.
TEST(RecordCameraTest, UnpluggedCameraLeavesTheScreenRecording) {
    START_XVFB(session, XvfbSession::desktop());
    ScreenAnimation animation;

    CameraRecording recording({"--duration", "3", "--camera", "Test Camera", "--separate-layers"},
                              {{"TAVELQUISTON_TEST_CAMERA_UNPLUG_AFTER", "1"}});
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
    const std::string log = recording.output();
    const size_t warning = log.find("stopped delivering frames");
    ASSERT_NE(warning, std::string::npos);
    EXPECT_EQ(log.find("stopped delivering frames", warning + 1), std::string::npos);

    const auto layers =
        probeLayers(MediaLayerRecordingManager::loadPackage(recording.packagePath()));
    ASSERT_TRUE(layers.has_value());
    EXPECT_NEAR(layers->screen.endSeconds, 3.0, cameraFrame + 0.25);
    EXPECT_LT(layers->camera.endSeconds, 1.5);
}

// In a single-file recording the camera overlay is a window on the screen and is recorded with
// it: the test picture's colour bars (red at the left, cyan at the right; mirrored, the other
// way round) show at the overlay's place from the first frame, and nowhere else.
TEST(RecordCameraTest, OverlayIsRecordedWithTheScreen) {
    START_XVFB(session, XvfbSession::desktop());

    for (const bool mirrored : {false, true}) {
        std::vector<std::string> arguments = {
            "--duration", "1", "--camera", "Test Camera", "--camera-position", "top-left"};
        // The display named as well: the overlay's window toolkit must not take "--display"
        // for its own option.
        if (mirrored)
            arguments.insert(
                arguments.end(),
                {"--mirror", "--display",
                 std::to_string(
                     X11ShareableContent::fetch(X11Connection()).displays.front().displayID)});
        // The overlay is a real window on the test's X server.
        CameraRecording recording(arguments, {realWindows});
        ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
        const AVFramePtr picture = decodeFirstPicture(recording.moviePath());
        ASSERT_TRUE(picture);
        ASSERT_EQ(picture->format, AV_PIX_FMT_YUV420P);
        auto chroma = [&](int x, int y) {
            return std::pair{chromaAt(*picture, 1, x, y), chromaAt(*picture, 2, x, y)};
        };
        // Votes over a column of the bar, since the pattern's moving line may cross a sample.
        auto votes = [&](int x, auto isColour) {
            int count = 0;
            for (int y = 40; y < 190; y += 15)
                count += isColour(chroma(x, y));
            return count;
        };
        auto red = [](std::pair<int, int> uv) { return uv.second > 200; };
        auto cyan = [](std::pair<int, int> uv) { return uv.first > 150 && uv.second < 60; };
        // The overlay is 320x180 at (24, 24); each of the six bars is about 53 pixels wide.
        const int leftBar = 24 + 26, rightBar = 24 + 320 - 26;
        EXPECT_GE(votes(mirrored ? rightBar : leftBar, red), 7) << "mirrored " << mirrored;
        EXPECT_GE(votes(mirrored ? leftBar : rightBar, cyan), 7) << "mirrored " << mirrored;
        EXPECT_EQ(votes(500, red) + votes(500, cyan), 0);
    }
}

// A camera that is not there is named in one error before anything is recorded, and the output
// folder stays empty.
TEST(RecordCameraTest, MissingCameraIsRefusedBeforeRecording) {
    START_XVFB(session, XvfbSession::desktop());

    for (const std::string device : {"No Such Camera", "/dev/video99"}) {
        CameraRecording recording({"--duration", "1", "--camera", device, "--separate-layers"});
        EXPECT_EQ(recording.waitForExit(20s), 2) << recording.errors();
        EXPECT_NE(recording.errors().find(device), std::string::npos) << recording.errors();
        EXPECT_TRUE(QDir(recording.folder.path())
                        .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
                        .isEmpty());
    }
}

// Good camera options reach the request.
TEST(RecordCameraTest, CameraOptionsReachTheRequest) {
    const RecordRequest request = parseRecordRequest(
        {"--camera", "/dev/video0", "--camera-size", "1920x1080", "--separate-layers"});
    EXPECT_EQ(request.cameraSize, (VideoDimensions{1920, 1080}));
    EXPECT_TRUE(request.separateLayers);
}

// The test camera is listed beside real ones only when asked for.
TEST(RecordCameraTest, ListShowsTheTestCameraWhenAsked) {
    auto listed = [] {
        const CommandOutcome outcome = runCommandEntry(runList, {"cameras"});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return outcome.out;
    };
    {
        ScopedEnvironment on("TAVELQUISTON_TEST_CAMERA", "1");
        EXPECT_NE(listed().find("Test Camera"), std::string::npos);
    }
    ScopedEnvironment off("TAVELQUISTON_TEST_CAMERA", std::nullopt);
    EXPECT_EQ(listed().find("Test Camera"), std::string::npos);
}
