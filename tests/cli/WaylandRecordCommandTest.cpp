#include "media/MovieProbe.h"
#include "support/CliRun.h"
#include "support/DBusSession.h"
#include "support/PipeWireSession.h"
#include "support/ScreenCastPortalStandIn.h"
#include "support/TextFiles.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <set>

using namespace std::chrono_literals;

namespace {

// tavelquiston-cli run to its end with a settings folder of its own and no X display, so only
// the Wayland path can record.
struct WaylandRun : CliRun {
    explicit WaylandRun(const std::vector<std::string>& arguments) {
        start(arguments, {{"XDG_CONFIG_HOME", config.path().toStdString()}},
              {"DISPLAY", "WAYLAND_DISPLAY"});
        status = waitForExit(40s);
    }
    std::string settings() const {
        return readText(config.filePath("tavelquiston/tavelquiston.ini").toStdString());
    }

    QTemporaryDir config;
    std::optional<int> status;
};

// What the portal stand-in shares: `node` of the test's PipeWire daemon, of the given size.
ScreenCastPortalStandIn::Options sharing(uint32_t node, int width, int height,
                                         const PipeWireSession& pipewire) {
    ScreenCastPortalStandIn::Options options;
    options.node = node;
    options.width = width;
    options.height = height;
    options.pipewireSocket = pipewire.socketPath();
    return options;
}

} // namespace

// Three seconds through the portal and PipeWire: the file has the shared stream's size, lasts
// three seconds within a frame, shows the producer's red, and the portal's restore token is
// kept in the settings for the next run.
TEST(WaylandRecordCommandTest, RecordsThreeSecondsThroughThePortal) {
    START_DBUS(bus);
    START_PIPEWIRE(pipewire);
    const auto node = pipewire.startVideoSource("tq_desktop", "red", 320, 240);
    ASSERT_TRUE(node);
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH,
                                   sharing(*node, 320, 240, pipewire));
    ASSERT_TRUE(portal.isReady()) << portal.error();

    QTemporaryDir movies;
    WaylandRun run({"record", "--backend", "wayland", "--duration", "3", "--fps", "30", "--output",
                    movies.path().toStdString()});
    ASSERT_EQ(run.status, 0) << run.errors();
    EXPECT_NE(run.output().find("Capture backend: wayland"), std::string::npos);
    const std::string movie = run.writtenFile(".mov");
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
    EXPECT_GT(chromaAt(*picture, 2, 160, 120), 200);
    EXPECT_LT(chromaAt(*picture, 1, 160, 120), 110);
    EXPECT_NE(run.settings().find("screenCastRestoreToken="), std::string::npos);
}

// `--mode window` without an id records the window the user picked in the desktop's dialog.
TEST(WaylandRecordCommandTest, RecordsTheWindowPickedInTheDialog) {
    START_DBUS(bus);
    START_PIPEWIRE(pipewire);
    const auto node = pipewire.startVideoSource("tq_window", "blue", 200, 150);
    ASSERT_TRUE(node);
    ScreenCastPortalStandIn::Options options = sharing(*node, 200, 150, pipewire);
    options.shareWindow = true;
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH, options);
    ASSERT_TRUE(portal.isReady()) << portal.error();

    QTemporaryDir movies;
    WaylandRun run({"record", "--backend", "wayland", "--mode", "window", "--duration", "1",
                    "--fps", "30", "--output", movies.path().toStdString()});
    ASSERT_EQ(run.status, 0) << run.errors();
    const std::string movie = run.writtenFile(".mov");
    const AVFramePtr picture = decodeFirstPicture(movie);
    ASSERT_TRUE(picture) << run.output();
    EXPECT_EQ(picture->width, 200);
    EXPECT_EQ(picture->height, 150);
    // Blue: a high U (Cb).
    EXPECT_GT(chromaAt(*picture, 1, 100, 60), 200);
}

// Asking for Wayland where no portal answers is one clear error and a usage status, for
// recording and for listing alike.
TEST(WaylandRecordCommandTest, NoPortalOnTheBusIsOneClearError) {
    START_DBUS(bus);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"record", "--backend", "wayland", "--duration", "1"},
          std::vector<std::string>{"list", "--backend", "wayland", "displays"}}) {
        WaylandRun run(arguments);
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
    START_DBUS(bus);
    START_PIPEWIRE(pipewire);
    constexpr int width = 320, height = 240;
    const auto node = pipewire.startSourceProgram(
        "tq_cursor_desktop",
        {TAVELQUISTON_CURSOR_SOURCE_PATH, "--name", "tq_cursor_desktop", "--width",
         std::to_string(width), "--height", std::to_string(height), "--color", "00ff00"});
    ASSERT_TRUE(node) << "the cursor source did not appear in PipeWire";
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH,
                                   sharing(*node, width, height, pipewire));
    ASSERT_TRUE(portal.isReady()) << portal.error();

    QTemporaryDir movies;
    WaylandRun run({"record", "--backend", "wayland", "--duration", "2", "--fps", "30",
                    "--click-to-zoom", "--smart-zoom", "off", "--show-cursor", "--output",
                    movies.path().toStdString()});
    ASSERT_EQ(run.status, 0) << run.errors();
    const QJsonObject metadata = readJsonObject(run.writtenFile(".metadata.json"));
    ASSERT_FALSE(metadata.isEmpty()) << run.output();
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

    const std::string movie = run.writtenFile(".mov");
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
    START_DBUS(bus);
    START_PIPEWIRE(pipewire);
    const auto node = pipewire.startVideoSource("tq_refused", "red", 160, 120);
    ASSERT_TRUE(node);
    ScreenCastPortalStandIn portal(TAVELQUISTON_PORTAL_STANDIN_PATH,
                                   sharing(*node, 160, 120, pipewire));
    ASSERT_TRUE(portal.isReady()) << portal.error();

    struct Case {
        std::vector<std::string> mode;
        std::string reason;
    };
    for (const Case& c :
         {Case{{"--mode", "application", "--app", "org.example.Editor"}, "Applications cannot"},
          Case{{"--mode", "windows", "--window", "1", "--window", "2"}, "Several windows"}}) {
        QTemporaryDir movies;
        WaylandRun run(joined({"record", "--backend", "wayland", "--duration", "1", "--output",
                               movies.path().toStdString()},
                              c.mode));
        const std::string errors = run.errors();
        EXPECT_EQ(run.status, 2) << errors;
        EXPECT_NE(errors.find(c.reason), std::string::npos) << errors;
        EXPECT_NE(errors.find("Wayland"), std::string::npos) << errors;
        EXPECT_TRUE(QDir(movies.path()).entryList(QDir::Files).isEmpty());
    }
}
