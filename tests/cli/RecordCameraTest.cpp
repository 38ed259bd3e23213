#include "cli/ListCommand.h"
#include "cli/RecordCommand.h"
#include "media/layers/LayerRecordingError.h"
#include "media/layers/MediaLayerRecordingManager.h"

#include "media/MovieProbe.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ShareableContent.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/ScopedEnvironment.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <sstream>

using namespace std::chrono_literals;

namespace {

constexpr double cameraFrame = 1.0 / 30;

std::string readText(const QString& path) {
    std::ifstream in(path.toStdString());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

XvfbSession::Options desktop() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    options.windowManager = true;
    return options;
}

// One `record` run with the test camera, writing into a folder of its own.
class CameraRecording {
public:
    explicit CameraRecording(const QStringList& extra, bool window = false,
                             std::map<std::string, std::string> environment = {}) {
        std::vector<std::string> argv = {TAVELQUISTON_CLI_PATH,       "record", "--output",
                                         output.path().toStdString(), "--fps",  "30"};
        for (const QString& argument : extra)
            argv.push_back(argument.toStdString());
        ChildProcess::Options options;
        options.environment = std::move(environment);
        options.environment["TAVELQUISTON_TEST_CAMERA"] = "1";
        // The overlay is a real window on the test's X server, not an offscreen one.
        if (window)
            options.environment["QT_QPA_PLATFORM"] = "xcb";
        options.stdoutPath = (logs.path() + "/stdout.txt").toStdString();
        options.stderrPath = (logs.path() + "/stderr.txt").toStdString();
        process = ChildProcess(argv, options);
    }
    std::string stdoutText() const { return readText(logs.path() + "/stdout.txt"); }
    std::string errors() const { return readText(logs.path() + "/stderr.txt"); }
    // The package folder, printed as the second-last line.
    QString packagePath() const {
        const QStringList lines =
            QString::fromStdString(stdoutText()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        return lines.size() >= 2 ? lines[lines.size() - 2] : QString();
    }

    QTemporaryDir output;
    QTemporaryDir logs;
    ChildProcess process;
};

double maxGap(const std::vector<double>& times) {
    double gap = 0;
    for (size_t i = 1; i < times.size(); ++i)
        gap = std::max(gap, times[i] - times[i - 1]);
    return gap;
}

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
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    CameraRecording recording({"--duration", "3", "--camera", "Test Camera", "--separate-layers"});
    ASSERT_EQ(recording.process.waitForExit(30s), 0) << recording.errors();
    const QString folder = recording.packagePath();
    EXPECT_TRUE(QFileInfo(folder).fileName().contains(QRegularExpression(
        QStringLiteral("^Recording-\\d{4}-\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d$"))))
        << folder.toStdString();
    const QStringList files = QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    EXPECT_EQ(files,
              QStringList({".camera.mov", ".metadata.json", ".package.json", ".screen.mov"}));

    QFile manifestFile(folder + "/.package.json");
    ASSERT_TRUE(manifestFile.open(QIODevice::ReadOnly));
    const QJsonObject manifest = QJsonDocument::fromJson(manifestFile.readAll()).object();
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
    EXPECT_LT(maxGap(layers->camera.packetTimes), 3 * cameraFrame);
}

// A pause of a second leaves no gap in either layer, and the two still end together.
TEST(RecordCameraTest, PauseKeepsTheLayersAligned) {
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    CameraRecording recording({"--duration", "2", "--camera", "Test Camera", "--separate-layers"});
    ASSERT_TRUE(waitUntil(
        [&] { return recording.stdoutText().find("Camera frame #5 append") != std::string::npos; },
        15s))
        << recording.errors();
    std::this_thread::sleep_for(500ms);
    ::kill(recording.process.pid(), SIGUSR1);
    ASSERT_TRUE(
        waitUntil([&] { return recording.errors().find("Paused") != std::string::npos; }, 5s));
    std::this_thread::sleep_for(1s);
    ::kill(recording.process.pid(), SIGUSR1);
    ASSERT_EQ(recording.process.waitForExit(30s), 0) << recording.errors();

    const auto layers =
        probeLayers(MediaLayerRecordingManager::loadPackage(recording.packagePath()));
    ASSERT_TRUE(layers.has_value());
    EXPECT_NEAR(layers->screen.endSeconds, 2.0, cameraFrame + 0.25);
    EXPECT_NEAR(layers->camera.endSeconds, layers->screen.endSeconds, 2 * cameraFrame);
    EXPECT_LT(maxGap(layers->screen.packetTimes), 0.2);
    EXPECT_LT(maxGap(layers->camera.packetTimes), 0.2);
}

// A camera unplugged during a separate-layers recording costs the camera layer its rest, with
// one warning; the screen layer goes on to the end and the package is complete.
TEST(RecordCameraTest, UnpluggedCameraLeavesTheScreenRecording) {
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    CameraRecording recording({"--duration", "3", "--camera", "Test Camera", "--separate-layers"},
                              false, {{"TAVELQUISTON_TEST_CAMERA_UNPLUG_AFTER", "1"}});
    ASSERT_EQ(recording.process.waitForExit(30s), 0) << recording.errors();
    const std::string log = recording.stdoutText();
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
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();

    for (const bool mirrored : {false, true}) {
        QStringList arguments = {"--duration",        "1",       "--camera", "Test Camera",
                                 "--camera-position", "top-left"};
        // The display named as well: the overlay's window toolkit must not take "--display"
        // for its own option.
        if (mirrored)
            arguments
                << "--mirror"
                << "--display"
                << QString::number(
                       X11ShareableContent::fetch(X11Connection()).displays.front().displayID);
        CameraRecording recording(arguments, true);
        ASSERT_EQ(recording.process.waitForExit(30s), 0) << recording.errors();
        const QStringList lines = QString::fromStdString(recording.stdoutText())
                                      .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        ASSERT_GE(lines.size(), 2);
        const AVFramePtr picture = decodeFirstPicture(lines[lines.size() - 2].toStdString());
        ASSERT_TRUE(picture);
        ASSERT_EQ(picture->format, AV_PIX_FMT_YUV420P);
        auto chroma = [&](int x, int y) {
            const int u = picture->data[1][(y / 2) * picture->linesize[1] + x / 2];
            const int v = picture->data[2][(y / 2) * picture->linesize[2] + x / 2];
            return std::pair{u, v};
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
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();

    for (const QString& device :
         {QStringLiteral("No Such Camera"), QStringLiteral("/dev/video99")}) {
        CameraRecording recording({"--duration", "1", "--camera", device, "--separate-layers"});
        EXPECT_EQ(recording.process.waitForExit(20s), 2) << recording.errors();
        EXPECT_NE(recording.errors().find(device.toStdString()), std::string::npos)
            << recording.errors();
        EXPECT_TRUE(QDir(recording.output.path())
                        .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
                        .isEmpty());
    }
}

// Camera options with values that cannot be used are refused with the value named.
TEST(RecordCameraTest, BadCameraOptionsAreNamed) {
    for (const auto& [arguments, named] : std::vector<std::pair<QStringList, std::string>>{
             {{"--camera-size", "12x7"}, "\"12x7\""},
             {{"--camera-size", "wide"}, "\"wide\""},
             {{"--camera-position", "middle"}, "\"middle\""},
             {{"--camera"}, "--camera needs a value"}}) {
        try {
            parseRecordRequest(arguments);
            ADD_FAILURE() << arguments.join(' ').toStdString() << " was taken";
        } catch (const CliUsageError& error) {
            EXPECT_NE(std::string(error.what()).find(named), std::string::npos) << error.what();
        }
    }
    const RecordRequest request = parseRecordRequest(
        {"--camera", "/dev/video0", "--camera-size", "1920x1080", "--separate-layers"});
    EXPECT_EQ(request.cameraSize, (VideoDimensions{1920, 1080}));
    EXPECT_TRUE(request.separateLayers);
}

// The test camera is listed beside real ones only when asked for.
TEST(RecordCameraTest, ListShowsTheTestCameraWhenAsked) {
    auto listed = [] {
        FILE* out = std::tmpfile();
        EXPECT_EQ(runList({"cameras"}, out, stderr), 0);
        std::rewind(out);
        std::string text;
        char buffer[4096];
        while (const size_t n = std::fread(buffer, 1, sizeof buffer, out))
            text.append(buffer, n);
        std::fclose(out);
        return text;
    };
    {
        ScopedEnvironment on("TAVELQUISTON_TEST_CAMERA", "1");
        EXPECT_NE(listed().find("Test Camera"), std::string::npos);
    }
    ScopedEnvironment off("TAVELQUISTON_TEST_CAMERA", std::nullopt);
    EXPECT_EQ(listed().find("Test Camera"), std::string::npos);
}
