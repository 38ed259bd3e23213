#include "cli/RecordCommand.h"

#include "cli/CommandOutcome.h"
#include "cli/ListCommand.h"
#include "media/MovieProbe.h"
#include "support/CliRun.h"
#include "support/EventLoop.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

using namespace std::chrono_literals;

namespace {

// One record run at 30 frames a second.
struct Recording : RecordRun {
    explicit Recording(const std::vector<std::string>& extra, Environment environment = {})
        : RecordRun(joined({"--fps", "30"}, extra), std::move(environment)) {}
};

// Waits until `list windows` shows `text`; the listing it last saw.
std::string waitForListedWindow(const std::string& text) {
    std::string windows;
    waitUntil(
        [&] {
            windows = runCommandEntry(runList, {"windows"}).out;
            return windows.find(text) != std::string::npos;
        },
        5s);
    return windows;
}

} // namespace

// Bad values are refused before anything starts, with the option or value named: the
// picture's, the camera's, the pointer's and the sound's options alike.
TEST(RecordCommandTest, BadValuesAreNamed) {
    const std::vector<std::pair<QStringList, std::string>> cases = {
        {{"--fps", "fast"}, "\"fast\""},
        {{"--resolution", "ultra"}, "low|normal|high"},
        {{"--area", "1,2,3"}, "\"1,2,3\""},
        {{"--area", "0,0,0,10"}, "positive size"},
        {{"--mode", "window"}, "--window ID"},
        {{"--mode", "window", "--window", "1", "--window", "2"}, "--mode windows"},
        {{"--mode", "application"}, "--app"},
        {{"--duration", "-1"}, "\"-1\""},
        {{"--background", "plaid"}, "\"plaid\""},
        {{"--frobnicate"}, "\"--frobnicate\""},
        {{"--output", "/dev/null/recordings"}, "/dev/null/recordings"}, // cannot be made
        {{"--camera-size", "12x7"}, "\"12x7\""},
        {{"--camera-size", "wide"}, "\"wide\""},
        {{"--camera-position", "middle"}, "\"middle\""},
        {{"--camera"}, "--camera needs a value"},
        {{"--zoom-level", "9"}, "\"9\""},
        {{"--zoom-duration", "soon"}, "\"soon\""},
        {{"--click-threshold", "-1"}, "\"-1\""},
        {{"--smart-zoom", "maybe"}, "\"maybe\""},
        {{"--cursor-style", "star"}, "\"star\""},
        {{"--cursor-size", "0"}, "\"0\""},
        {{"--ripple", "yes"}, "\"yes\""},
        {{"--ripple-color", "nocolour"}, "\"nocolour\""},
        {{"--audio-format", "mp3"}, "--audio-format"},
        {{"--mic-volume", "loud"}, "--mic-volume"},
        {{"--system-volume", "-1"}, "--system-volume"},
        {{"--mode", "audio"}, "--mode audio"},
        {{"--aec"}, "--aec"},
    };
    for (const auto& [arguments, expected] : cases) {
        const CommandOutcome outcome = runCommandEntry(runRecord, arguments);
        EXPECT_EQ(outcome.status, 2) << arguments.join(' ').toStdString();
        EXPECT_NE(outcome.err.find(expected), std::string::npos)
            << arguments.join(' ').toStdString() << ": " << outcome.err;
    }
}

// --area is in pixels from the display's top left; the mode counts from its bottom left.
TEST(RecordCommandTest, AreaCountsFromTheDisplaysBottomLeft) {
    SCShareableContent content;
    content.displays = {SCDisplay{5, Rect(0, 0, 1280, 720), 1.0},
                        SCDisplay{9, Rect(1280, 0, 800, 600), 1.0}};
    RecordRequest request = parseRecordRequest({"--area", "100,50,200,100", "--display", "9"});
    EXPECT_EQ(request.mode, QStringLiteral("area"));
    const RecordingMode mode = resolveRecordingMode(request, content);
    const auto* area = mode.as<RecordingMode::ScreenArea>();
    ASSERT_NE(area, nullptr);
    EXPECT_EQ(area->display.displayID, 9u);
    // y from the bottom: 600 - 50 - 100 = 450.
    EXPECT_EQ(area->rect, Rect(100, 450, 200, 100));

    request.area = QRect(700, 0, 200, 100); // runs past the 800-pixel width
    EXPECT_THROW(resolveRecordingMode(request, content), CliUsageError);
    request.displayID = 77;
    EXPECT_THROW(resolveRecordingMode(request, content), CliUsageError);
    RecordRequest windows = parseRecordRequest({"--mode", "windows", "--window", "0x400001"});
    EXPECT_EQ(windows.windowIDs, std::vector<uint32_t>{0x400001});
    EXPECT_THROW(resolveRecordingMode(windows, content), CliUsageError);
}

// A display recording of 2 s while the screen animates: the file lasts 2 s within one frame
// interval plus start-up, has the display's size, frames in increasing time, and metadata.
TEST(RecordCommandTest, DisplayRecordingLastsItsDuration) {
    START_XVFB(session, XvfbSession::desktop());
    ScreenAnimation animation;

    Recording recording({"--duration", "2"});
    const auto status = recording.waitForExit(20s);
    ASSERT_EQ(status, 0) << recording.errors();
    const std::string movie = recording.moviePath(), metadata = recording.metadataPath();
    EXPECT_NE(movie.find("/Recording at "), std::string::npos) << movie;
    EXPECT_NE(metadata.find("/.Recording at "), std::string::npos) << metadata;
    EXPECT_NE(metadata.find(".metadata.json"), std::string::npos) << metadata;

    const auto video = probeVideo(movie);
    ASSERT_TRUE(video);
    EXPECT_EQ(video->width, 640);
    EXPECT_EQ(video->height, 480);
    // 2 s, give or take a frame at 30 per second and the time the first grab takes.
    EXPECT_NEAR(video->endSeconds, 2.0, 1.0 / 30 + 0.25);
    ASSERT_GT(video->packetTimes.size(), 30u); // the screen changed at every tick
    for (size_t i = 1; i < video->packetTimes.size(); ++i)
        ASSERT_LT(video->packetTimes[i - 1], video->packetTimes[i]) << i;

    ASSERT_TRUE(recording.metadata().contains("duration")) << metadata;
    EXPECT_NEAR(recording.metadata().value("duration").toDouble(), 2.0, 0.25);
}

// An area recording holds the area's pixels: a red window at the area's top left shows there
// in the decoded file, and the rest of the area is not red.
TEST(RecordCommandTest, AreaRecordingPlacesThePixels) {
    XvfbSession::Options options = XvfbSession::desktop();
    options.windowManager = false; // the window sits exactly where it was asked to
    START_XVFB(session, options);
    REQUIRE_TOOL("xmessage");
    session.launch({"xmessage", "-bg", "red", "-fg", "red", "-geometry", "200x150+100+80", " "});
    std::this_thread::sleep_for(500ms);

    // The area starts 40 px right of and 30 px below the window's corner. Its odd size ends up
    // one column and row smaller in the file, which 4:2:0 video needs.
    Recording recording({"--area", "140,110,321,241", "--duration", "1"});
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    const AVFramePtr picture = decodeFirstPicture(recording.moviePath());
    ASSERT_TRUE(picture);
    ASSERT_EQ(picture->width, 320);
    ASSERT_EQ(picture->height, 240);
    ASSERT_EQ(picture->format, AV_PIX_FMT_YUV420P);
    // Red has a high V (Cr) and low Y; the root's black-and-grey weave has V near 128.
    // Area (40, 40) is root (180, 150): inside the window, away from its text.
    EXPECT_GT(chromaAt(*picture, 2, 40, 40), 200);
    // Area (260, 200) is root (400, 310): outside the window (x 100...300, y 80...230).
    EXPECT_LT(chromaAt(*picture, 2, 260, 200), 160);
}

// A window of an application hidden from recordings is painted out of a display recording
// with the background under it (this server publishes no wallpaper); the screen around it
// stays. The same recording without the hidden entry shows the window, so it was there.
TEST(RecordCommandTest, HiddenApplicationsArePaintedOut) {
    START_XVFB(session, XvfbSession::desktop());
    REQUIRE_TOOL("xmessage");
    session.launch({"xmessage", "-bg", "red", "-fg", "red", "-geometry", "200x150+40+40", " "});
    const std::string windows = waitForListedWindow("xmessage");
    ASSERT_NE(windows.find("xmessage"), std::string::npos) << windows;
    std::this_thread::sleep_for(300ms);

    QTemporaryDir config;
    auto record = [&](const char* hiddenApps) {
        {
            QSettings settings(config.path() + "/tavelquiston/tavelquiston.ini",
                               QSettings::IniFormat);
            settings.setValue("hiddenApps", hiddenApps);
        }
        Recording recording({"--duration", "0.5", "--background", "blue"},
                            {{"XDG_CONFIG_HOME", config.path().toStdString()}});
        EXPECT_EQ(recording.waitForExit(20s), 0) << recording.errors();
        return decodeFirstPicture(recording.moviePath());
    };
    // (140, 130) is inside the xmessage's client area (x 40...240, y 40...190 before the
    // decorations push it right and down by a few pixels); (500, 400) is far outside it.
    const AVFramePtr shown = record("[]");
    ASSERT_TRUE(shown);
    EXPECT_GT(chromaAt(*shown, 2, 140, 130), 200) << "the window is not where it was asked to be";

    const AVFramePtr hidden = record(R"([{"bundleID": "xmessage", "name": "xmessage"}])");
    ASSERT_TRUE(hidden);
    // Blue has a high U (Cb) and a low V; red the other way round.
    EXPECT_LT(chromaAt(*hidden, 2, 140, 130), 160) << "the hidden window shows";
    EXPECT_GT(chromaAt(*hidden, 1, 140, 130), 200) << "not the background colour";
    EXPECT_LT(chromaAt(*hidden, 1, 500, 400), 160) << "painted beyond the window";
}

// SIGTERM during a recording finishes the file: it plays, and its metadata is beside it.
TEST(RecordCommandTest, SigtermFinishesAPlayableFile) {
    START_XVFB(session, XvfbSession::desktop());
    ScreenAnimation animation;

    Recording recording({});
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    std::this_thread::sleep_for(1s);
    recording.signal(SIGTERM);
    ASSERT_EQ(recording.waitForExit(15s), 0) << recording.errors();
    const std::string movie = recording.moviePath(), metadata = recording.metadataPath();
    const auto video = probeVideo(movie);
    ASSERT_TRUE(video) << movie;
    EXPECT_GT(video->endSeconds, 0.8);
    EXPECT_TRUE(decodeFirstPicture(movie));
    EXPECT_TRUE(QFile::exists(QString::fromStdString(metadata))) << metadata;
}

// SIGTERM half a second into a 3 s countdown ends the command within about a second of the
// signal, says so, and leaves no movie or metadata behind.
TEST(RecordCommandTest, SigtermDuringCountdownCancels) {
    START_XVFB(session, XvfbSession::desktop());

    Recording recording({"--countdown", "3"});
    ASSERT_TRUE(recording.waitForErrors("starts in 3", 10s)) << recording.errors();
    std::this_thread::sleep_for(500ms);
    const auto signalled = std::chrono::steady_clock::now();
    recording.signal(SIGTERM);
    // Waiting for the whole count would take 2.5 s more.
    EXPECT_EQ(recording.waitForExit(5s), 1) << recording.errors();
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, 1s);
    EXPECT_NE(recording.errors().find("before recording started"), std::string::npos)
        << recording.errors();
    const QStringList left =
        QDir(recording.folder.path()).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QString& name : left)
        EXPECT_FALSE(name.contains(QStringLiteral("Recording at"))) << name.toStdString();
    EXPECT_EQ(recording.output().find(recording.folderPath() + "/Recording at"), std::string::npos);
}

// A pause of a second leaves no frozen second: the file lasts the recorded time, and no two
// frames are farther apart than a few intervals.
TEST(RecordCommandTest, PauseLeavesNoGap) {
    START_XVFB(session, XvfbSession::desktop());
    ScreenAnimation animation;

    Recording recording({"--duration", "2"});
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    std::this_thread::sleep_for(700ms);
    ASSERT_TRUE(recording.pauseFor(1s)) << recording.errors();
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    EXPECT_NE(recording.errors().find("Resumed"), std::string::npos);

    const auto video = probeVideo(recording.moviePath());
    ASSERT_TRUE(video);
    // --duration counts recorded time only: 2 s, not the 3 s the run took.
    EXPECT_NEAR(video->endSeconds, 2.0, 1.0 / 30 + 0.25);
    EXPECT_LT(video->largestGap(), 0.2);
}

// `list` shows the display with the size --area works in, and the managed windows.
TEST(RecordCommandTest, ListShowsDisplaysAndWindows) {
    START_XVFB(session, XvfbSession::desktop());
    REQUIRE_TOOL("xmessage");
    session.launch({"xmessage", "-title", "Listed Window", "hello"});

    const CommandOutcome displays = runCommandEntry(runList, {"displays"});
    EXPECT_EQ(displays.status, 0);
    EXPECT_NE(displays.out.find("640x480+0+0"), std::string::npos) << displays.out;

    const std::string windows = waitForListedWindow("Listed Window");
    EXPECT_NE(windows.find("Listed Window"), std::string::npos) << windows;
    EXPECT_NE(windows.find("xmessage"), std::string::npos);
    EXPECT_EQ(runCommandEntry(runList, {"monitors"}).status, 2);
}

// A window recording shows the window alone: another window in front of it leaves no trace.
TEST(RecordCommandTest, WindowRecordingIgnoresWindowsInFront) {
    START_XVFB(session, XvfbSession::desktop());
    REQUIRE_TOOL("xmessage");
    session.launch({"xmessage", "-title", "Back", "-bg", "red", "-fg", "red", "-geometry",
                    "300x200+100+80", " "});
    ASSERT_NE(waitForListedWindow("\tBack").find("\tBack"), std::string::npos);
    session.launch({"xmessage", "-title", "Front", "-bg", "blue", "-fg", "blue", "-geometry",
                    "200x150+200+150", " "});
    const std::string windows = waitForListedWindow("\tFront");
    ASSERT_NE(windows.find("\tFront"), std::string::npos) << windows;
    std::this_thread::sleep_for(300ms);
    // The line of the back window starts with its id.
    const size_t line = windows.rfind('\n', windows.find("\tBack")) + 1;
    const std::string id = windows.substr(line, windows.find('\t', line) - line);

    Recording recording({"--mode", "window", "--window", id, "--duration", "1"});
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    const AVFramePtr picture = decodeFirstPicture(recording.moviePath());
    ASSERT_TRUE(picture);
    // The frame with its decorations starts at the window's requested corner (100, 80). Image
    // (200, 150) is root (300, 230): under the blue window, inside the red client area.
    EXPECT_GT(chromaAt(*picture, 2, 200, 150), 200) << "not red";
    EXPECT_LT(chromaAt(*picture, 1, 200, 150), 128) << "blue shows through";
}

// A still screen gives two frames a second, yet the file lasts as long as the recording did.
TEST(RecordCommandTest, StillScreenKeepsItsDuration) {
    START_XVFB(session, XvfbSession::desktop());
    std::this_thread::sleep_for(300ms); // let the window manager finish drawing

    Recording recording({"--duration", "2"});
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    const auto video = probeVideo(recording.moviePath());
    ASSERT_TRUE(video);
    // Of the 60 ticks at 30 per second: two frames a second, which keep the file on disk
    // current, and the closing one.
    EXPECT_LE(video->packetTimes.size(), 7u);
    EXPECT_NEAR(video->endSeconds, 2.0, 1.0 / 30 + 0.25);
}
