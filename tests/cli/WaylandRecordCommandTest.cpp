#include "media/MovieProbe.h"
#include "support/ChildProcess.h"
#include "support/DBusSession.h"
#include "support/PipeWireSession.h"
#include "support/ScreenCastPortalStandIn.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <set>
#include <sstream>

using namespace std::chrono_literals;

namespace {

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// tavelquiston-cli run to its end with a settings folder of its own and no X display, so only
// the Wayland path can record.
struct CliRun {
    explicit CliRun(const std::vector<std::string>& arguments) {
        std::vector<std::string> argv{TAVELQUISTON_CLI_PATH};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        ChildProcess::Options options;
        options.environment = {{"XDG_CONFIG_HOME", folder.path().toStdString() + "/config"}};
        options.unsetEnvironment = {"DISPLAY", "WAYLAND_DISPLAY"};
        options.stdoutPath = folder.path().toStdString() + "/out.txt";
        options.stderrPath = folder.path().toStdString() + "/err.txt";
        ChildProcess process(argv, options);
        status = process.waitForExit(40s);
    }
    std::string output() const { return readText(folder.path().toStdString() + "/out.txt"); }
    std::string errors() const { return readText(folder.path().toStdString() + "/err.txt"); }
    std::string settings() const {
        return readText(folder.path().toStdString() + "/config/tavelquiston/tavelquiston.ini");
    }

    QTemporaryDir folder;
    std::optional<int> status;
};

// The last line of a run's output that names a file ending in `suffix`.
std::string writtenFile(const std::string& output, const std::string& suffix) {
    std::istringstream lines(output);
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        if (line.size() >= suffix.size() &&
            line.compare(line.size() - suffix.size(), suffix.size(), suffix) == 0)
            found = line;
    }
    return found;
}

} // namespace

// Three seconds through the portal and PipeWire: the file has the shared stream's size, lasts
// three seconds within a frame, shows the producer's red, and the portal's restore token is
// kept in the settings for the next run.
TEST(WaylandRecordCommandTest, RecordsThreeSecondsThroughThePortal) {
    REQUIRE_DBUS();
    REQUIRE_PIPEWIRE();
    DBusSession bus;
    ASSERT_TRUE(bus.isReady()) << bus.error();
    PipeWireSession pipewire;
    ASSERT_TRUE(pipewire.isReady()) << pipewire.error();
    const auto node = pipewire.startVideoSource("tq_desktop", "red", 320, 240);
    ASSERT_TRUE(node);
    ScreenCastPortalStandIn::Options options;
    options.node = *node;
    options.width = 320;
    options.height = 240;
    options.pipewireSocket = pipewire.socketPath();
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH, options);
    ASSERT_TRUE(portal.isReady()) << portal.error();

    QTemporaryDir movies;
    CliRun run({"record", "--backend", "wayland", "--duration", "3", "--fps", "30", "--output",
                movies.path().toStdString()});
    ASSERT_EQ(run.status, 0) << run.errors();
    EXPECT_NE(run.output().find("Capture backend: wayland"), std::string::npos);
    std::istringstream lines(run.output());
    std::string movie;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(".mov") != std::string::npos && line.find("metadata") == std::string::npos)
            movie = line;
    }
    ASSERT_FALSE(movie.empty()) << run.output();

    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value());
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width, 320);
    EXPECT_EQ(video->height, 240);
    EXPECT_NEAR(probed->durationSeconds, 3.0, 1.0 / 30) << run.output();
    // The last picture shows within two frames of the end (the last may still be on its way
    // when the stop comes).
    EXPECT_GT(video->endSeconds, 3.0 - 2.0 / 30);
    const AVFramePtr picture = decodeFirstPicture(movie);
    ASSERT_TRUE(picture);
    ASSERT_EQ(picture->format, AV_PIX_FMT_YUV420P);
    // Red: a high V (Cr), a low U (Cb).
    EXPECT_GT(picture->data[2][60 * picture->linesize[2] + 80], 200);
    EXPECT_LT(picture->data[1][60 * picture->linesize[1] + 80], 110);
    EXPECT_NE(run.settings().find("screenCastRestoreToken="), std::string::npos);
}

// `--mode window` without an id records the window the user picked in the desktop's dialog.
TEST(WaylandRecordCommandTest, RecordsTheWindowPickedInTheDialog) {
    REQUIRE_DBUS();
    REQUIRE_PIPEWIRE();
    DBusSession bus;
    ASSERT_TRUE(bus.isReady()) << bus.error();
    PipeWireSession pipewire;
    ASSERT_TRUE(pipewire.isReady()) << pipewire.error();
    const auto node = pipewire.startVideoSource("tq_window", "blue", 200, 150);
    ASSERT_TRUE(node);
    ScreenCastPortalStandIn::Options options;
    options.node = *node;
    options.width = 200;
    options.height = 150;
    options.pipewireSocket = pipewire.socketPath();
    options.shareWindow = true;
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH, options);
    ASSERT_TRUE(portal.isReady()) << portal.error();

    QTemporaryDir movies;
    CliRun run({"record", "--backend", "wayland", "--mode", "window", "--duration", "1", "--fps",
                "30", "--output", movies.path().toStdString()});
    ASSERT_EQ(run.status, 0) << run.errors();
    std::istringstream lines(run.output());
    std::string movie;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(".mov") != std::string::npos && line.find("metadata") == std::string::npos)
            movie = line;
    }
    const AVFramePtr picture = decodeFirstPicture(movie);
    ASSERT_TRUE(picture) << run.output();
    EXPECT_EQ(picture->width, 200);
    EXPECT_EQ(picture->height, 150);
    // Blue: a high U (Cb).
    EXPECT_GT(picture->data[1][30 * picture->linesize[1] + 50], 200);
}

// Asking for Wayland where no portal answers is one clear error and a usage status, for
// recording and for listing alike.
TEST(WaylandRecordCommandTest, NoPortalOnTheBusIsOneClearError) {
    REQUIRE_DBUS();
    DBusSession bus;
    ASSERT_TRUE(bus.isReady()) << bus.error();
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"record", "--backend", "wayland", "--duration", "1"},
          std::vector<std::string>{"list", "--backend", "wayland", "displays"}}) {
        CliRun run(arguments);
        const std::string errors = run.errors();
        EXPECT_EQ(run.status, 2) << errors;
        EXPECT_NE(errors.find("ScreenCast portal"), std::string::npos) << errors;
        // One error of ours (Qt may add its own teardown noise after it).
        size_t ours = 0;
        for (size_t at = errors.find("❌"); at != std::string::npos; at = errors.find("❌", at + 1))
            ++ours;
        EXPECT_EQ(ours, 1u) << errors;
    }
}

// The pointer's place comes from the stream's cursor metadata: the producer moves it 4 pixels
// right per buffer along the middle row, and the recording's positions are those places,
// normalised to the picture, in time order. With the cursor shown, the metadata's white pointer
// is drawn into the file's pictures. There are no clicks on Wayland.
TEST(WaylandRecordCommandTest, CursorPositionsFollowTheStreamsCursorMetadata) {
    REQUIRE_DBUS();
    REQUIRE_PIPEWIRE();
    DBusSession bus;
    ASSERT_TRUE(bus.isReady()) << bus.error();
    PipeWireSession pipewire;
    ASSERT_TRUE(pipewire.isReady()) << pipewire.error();
    constexpr int width = 320, height = 240;
    const auto node = pipewire.startSourceProgram(
        "tq_cursor_desktop",
        {TAVELQUISTON_CURSOR_SOURCE_PATH, "--name", "tq_cursor_desktop", "--width",
         std::to_string(width), "--height", std::to_string(height), "--color", "00ff00"});
    ASSERT_TRUE(node) << "the cursor source did not appear in PipeWire";
    ScreenCastPortalStandIn::Options options;
    options.node = *node;
    options.width = width;
    options.height = height;
    options.pipewireSocket = pipewire.socketPath();
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH, options);
    ASSERT_TRUE(portal.isReady()) << portal.error();

    QTemporaryDir movies;
    CliRun run({"record", "--backend", "wayland", "--duration", "2", "--fps", "30",
                "--click-to-zoom", "--smart-zoom", "off", "--show-cursor", "--output",
                movies.path().toStdString()});
    ASSERT_EQ(run.status, 0) << run.errors();
    QFile file(QString::fromStdString(writtenFile(run.output(), ".metadata.json")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << run.output();
    const QJsonObject metadata = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_TRUE(metadata.value("cursorClicks").toArray().isEmpty());

    std::vector<double> pixelsX;
    double previousTime = -1;
    for (const QJsonValue& value : metadata.value("cursorPositions").toArray()) {
        const double time = value.toObject().value("timestamp").toDouble();
        const QJsonArray at = value.toObject().value("position").toArray();
        EXPECT_GE(time, previousTime);
        previousTime = time;
        EXPECT_NEAR(at[1].toDouble(), 0.5, 1e-6); // the middle row, from the top
        pixelsX.push_back(at[0].toDouble() * width);
    }
    // About 30 samples a second over two seconds.
    ASSERT_GT(pixelsX.size(), 40u) << run.output();
    std::set<int> places;
    size_t steps = 0, forward = 0;
    for (size_t i = 0; i < pixelsX.size(); ++i) {
        const double x = pixelsX[i];
        // Only places the producer put the pointer: 8 + 4n pixels.
        EXPECT_NEAR(std::fmod(x - 8.0 + 1e-6, 4.0), 0.0, 1e-3) << x;
        places.insert(int(std::lround(x)));
        if (i > 0 && x != pixelsX[i - 1]) {
            ++steps;
            forward += x > pixelsX[i - 1] ? 1 : 0;
        }
    }
    EXPECT_GT(places.size(), 20u);
    // Rightwards, but for the producer's one wrap back to the left edge.
    EXPECT_GE(forward + 1, steps);

    const std::string movie = writtenFile(run.output(), ".mov");
    const AVFramePtr picture = decodeFirstPicture(movie);
    ASSERT_TRUE(picture) << run.output();
    int whiteColumns = 0;
    const uint8_t* row = picture->data[0] + (height / 2 + 8) * picture->linesize[0];
    for (int x = 0; x < picture->width; ++x)
        whiteColumns += row[x] > 225 ? 1 : 0; // the green around it is far darker
    EXPECT_GE(whiteColumns, 12);
    EXPECT_LE(whiteColumns, 20);
}

// An application or several windows cannot be asked of the portal: each is one error that says
// why, with a usage status, and no file.
TEST(WaylandRecordCommandTest, ApplicationsAndSeveralWindowsAreRefusedWithTheReason) {
    REQUIRE_DBUS();
    REQUIRE_PIPEWIRE();
    DBusSession bus;
    ASSERT_TRUE(bus.isReady()) << bus.error();
    PipeWireSession pipewire;
    ASSERT_TRUE(pipewire.isReady()) << pipewire.error();
    const auto node = pipewire.startVideoSource("tq_refused", "red", 160, 120);
    ASSERT_TRUE(node);
    ScreenCastPortalStandIn::Options options;
    options.node = *node;
    options.width = 160;
    options.height = 120;
    options.pipewireSocket = pipewire.socketPath();
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH, options);
    ASSERT_TRUE(portal.isReady()) << portal.error();

    struct Case {
        std::vector<std::string> mode;
        std::string reason;
    };
    for (const Case& c :
         {Case{{"--mode", "application", "--app", "org.example.Editor"}, "Applications cannot"},
          Case{{"--mode", "windows", "--window", "1", "--window", "2"}, "Several windows"}}) {
        QTemporaryDir movies;
        std::vector<std::string> arguments{"record",
                                           "--backend",
                                           "wayland",
                                           "--duration",
                                           "1",
                                           "--output",
                                           movies.path().toStdString()};
        arguments.insert(arguments.end(), c.mode.begin(), c.mode.end());
        CliRun run(arguments);
        const std::string errors = run.errors();
        EXPECT_EQ(run.status, 2) << errors;
        EXPECT_NE(errors.find(c.reason), std::string::npos) << errors;
        EXPECT_NE(errors.find("Wayland"), std::string::npos) << errors;
        EXPECT_TRUE(QDir(movies.path()).entryList(QDir::Files).isEmpty());
    }
}
