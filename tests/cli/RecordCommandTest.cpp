#include "cli/RecordCommand.h"

#include "cli/ListCommand.h"

#include "media/MovieProbe.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sstream>

using namespace std::chrono_literals;

namespace {

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs a command in process and gives its exit status and standard error.
std::pair<int, std::string> runInProcess(int (*run)(const QStringList&, FILE*, FILE*),
                                         const QStringList& arguments,
                                         std::string* output = nullptr) {
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    const int status = run(arguments, out, err);
    auto slurp = [](FILE* file) {
        std::string text;
        std::rewind(file);
        char buffer[4096];
        while (const size_t n = std::fread(buffer, 1, sizeof buffer, file))
            text.append(buffer, n);
        std::fclose(file);
        return text;
    };
    if (output)
        *output = slurp(out);
    else
        std::fclose(out);
    return {status, slurp(err)};
}

XvfbSession::Options desktop() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    options.windowManager = true;
    return options;
}

// One tavelquiston-cli record run writing into its own folder.
class Recording {
public:
    explicit Recording(const QStringList& extra,
                       std::map<std::string, std::string> environment = {}) {
        std::vector<std::string> argv = {TAVELQUISTON_CLI_PATH,       "record", "--output",
                                         folder.path().toStdString(), "--fps",  "30"};
        for (const QString& argument : extra)
            argv.push_back(argument.toStdString());
        ChildProcess::Options options;
        options.environment = std::move(environment);
        options.stdoutPath = (folder.path() + "/stdout.txt").toStdString();
        options.stderrPath = (folder.path() + "/stderr.txt").toStdString();
        process = ChildProcess(argv, options);
    }
    std::string output() const { return readText((folder.path() + "/stdout.txt").toStdString()); }
    std::string errors() const { return readText((folder.path() + "/stderr.txt").toStdString()); }
    bool waitForFirstFrame() {
        return waitUntil(
            [&] {
                return output().find("Successfully appended video frame #1") != std::string::npos;
            },
            10s);
    }
    // The movie and metadata the command printed as its last two lines.
    std::pair<std::string, std::string> printedPaths() const {
        std::vector<std::string> lines;
        std::istringstream in(output());
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        if (lines.size() < 2)
            return {};
        return {lines[lines.size() - 2], lines.back()};
    }

    QTemporaryDir folder;
    ChildProcess process;
};

double maxGap(const std::vector<double>& times) {
    double gap = 0;
    for (size_t i = 1; i < times.size(); ++i)
        gap = std::max(gap, times[i] - times[i - 1]);
    return gap;
}

} // namespace

// Bad values are refused before anything starts, with the option and value named.
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
    };
    for (const auto& [arguments, expected] : cases) {
        const auto [status, errors] = runInProcess(runRecord, arguments);
        EXPECT_EQ(status, 2) << arguments.join(' ').toStdString();
        EXPECT_NE(errors.find(expected), std::string::npos)
            << arguments.join(' ').toStdString() << ": " << errors;
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
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    Recording recording({"--duration", "2"});
    const auto status = recording.process.waitForExit(20s);
    ASSERT_EQ(status, 0) << recording.errors();
    const auto [movie, metadata] = recording.printedPaths();
    EXPECT_NE(movie.find("/Recording at "), std::string::npos) << movie;
    EXPECT_NE(metadata.find("/.Recording at "), std::string::npos) << metadata;
    EXPECT_NE(metadata.find(".metadata.json"), std::string::npos) << metadata;

    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value());
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width, 640);
    EXPECT_EQ(video->height, 480);
    // 2 s, give or take a frame at 30 per second and the time the first grab takes.
    EXPECT_NEAR(video->endSeconds, 2.0, 1.0 / 30 + 0.25);
    ASSERT_GT(video->packetTimes.size(), 30u); // the screen changed at every tick
    for (size_t i = 1; i < video->packetTimes.size(); ++i)
        ASSERT_LT(video->packetTimes[i - 1], video->packetTimes[i]) << i;

    QFile file(QString::fromStdString(metadata));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject document = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_NEAR(document.value("duration").toDouble(), 2.0, 0.25);
}

// An area recording holds the area's pixels: a red window at the area's top left shows there
// in the decoded file, and the rest of the area is not red.
TEST(RecordCommandTest, AreaRecordingPlacesThePixels) {
    XvfbSession::Options options = desktop();
    options.windowManager = false; // the window sits exactly where it was asked to
    REQUIRE_XVFB(options);
    REQUIRE_TOOL("xmessage");
    XvfbSession session(options);
    ASSERT_TRUE(session.isReady()) << session.error();
    session.launch({"xmessage", "-bg", "red", "-fg", "red", "-geometry", "200x150+100+80", " "});
    std::this_thread::sleep_for(500ms);

    // The area starts 40 px right of and 30 px below the window's corner. Its odd size ends up
    // one column and row smaller in the file, which 4:2:0 video needs.
    Recording recording({"--area", "140,110,321,241", "--duration", "1"});
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();
    const AVFramePtr picture = decodeFirstPicture(recording.printedPaths().first);
    ASSERT_TRUE(picture);
    ASSERT_EQ(picture->width, 320);
    ASSERT_EQ(picture->height, 240);
    ASSERT_EQ(picture->format, AV_PIX_FMT_YUV420P);
    // Red has a high V (Cr) and low Y; the root's black-and-grey weave has V near 128.
    auto chromaRed = [&](int x, int y) {
        return picture->data[2][(y / 2) * picture->linesize[2] + x / 2];
    };
    // Area (40, 40) is root (180, 150): inside the window, away from its text.
    EXPECT_GT(chromaRed(40, 40), 200);
    // Area (260, 200) is root (400, 310): outside the window (x 100...300, y 80...230).
    EXPECT_LT(chromaRed(260, 200), 160);
}

// A window of an application hidden from recordings is painted out of a display recording
// with the background under it (this server publishes no wallpaper); the screen around it
// stays. The same recording without the hidden entry shows the window, so it was there.
TEST(RecordCommandTest, HiddenApplicationsArePaintedOut) {
    REQUIRE_XVFB(desktop());
    REQUIRE_TOOL("xmessage");
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    session.launch({"xmessage", "-bg", "red", "-fg", "red", "-geometry", "200x150+40+40", " "});
    std::string windows;
    ASSERT_TRUE(waitUntil(
        [&] {
            runInProcess(runList, {"windows"}, &windows);
            return windows.find("xmessage") != std::string::npos;
        },
        5s))
        << windows;
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
        EXPECT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();
        return decodeFirstPicture(recording.printedPaths().first);
    };
    // (140, 130) is inside the xmessage's client area (x 40...240, y 40...190 before the
    // decorations push it right and down by a few pixels); (500, 400) is far outside it.
    auto chroma = [](const AVFramePtr& picture, int plane, int x, int y) {
        return picture->data[plane][(y / 2) * picture->linesize[plane] + x / 2];
    };
    const AVFramePtr shown = record("[]");
    ASSERT_TRUE(shown);
    EXPECT_GT(chroma(shown, 2, 140, 130), 200) << "the window is not where it was asked to be";

    const AVFramePtr hidden = record(R"([{"bundleID": "xmessage", "name": "xmessage"}])");
    ASSERT_TRUE(hidden);
    // Blue has a high U (Cb) and a low V; red the other way round.
    EXPECT_LT(chroma(hidden, 2, 140, 130), 160) << "the hidden window shows";
    EXPECT_GT(chroma(hidden, 1, 140, 130), 200) << "not the background colour";
    EXPECT_LT(chroma(hidden, 1, 500, 400), 160) << "painted beyond the window";
}

// SIGTERM during a recording finishes the file: it plays, and its metadata is beside it.
TEST(RecordCommandTest, SigtermFinishesAPlayableFile) {
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    Recording recording({});
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    std::this_thread::sleep_for(1s);
    ::kill(recording.process.pid(), SIGTERM);
    ASSERT_EQ(recording.process.waitForExit(15s), 0) << recording.errors();
    const auto [movie, metadata] = recording.printedPaths();
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value()) << movie;
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_GT(video->endSeconds, 0.8);
    EXPECT_TRUE(decodeFirstPicture(movie));
    EXPECT_TRUE(QFile::exists(QString::fromStdString(metadata))) << metadata;
}

// SIGTERM half a second into a 3 s countdown ends the command within about a second of the
// signal, says so, and leaves no movie or metadata behind.
TEST(RecordCommandTest, SigtermDuringCountdownCancels) {
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();

    Recording recording({"--countdown", "3"});
    ASSERT_TRUE(
        waitUntil([&] { return recording.errors().find("starts in 3") != std::string::npos; }, 10s))
        << recording.errors();
    std::this_thread::sleep_for(500ms);
    const auto signalled = std::chrono::steady_clock::now();
    ::kill(recording.process.pid(), SIGTERM);
    // Waiting for the whole count would take 2.5 s more.
    EXPECT_EQ(recording.process.waitForExit(5s), 1) << recording.errors();
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, 1s);
    EXPECT_NE(recording.errors().find("before recording started"), std::string::npos)
        << recording.errors();
    const QStringList left =
        QDir(recording.folder.path()).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QString& name : left)
        EXPECT_FALSE(name.contains(QStringLiteral("Recording at"))) << name.toStdString();
    EXPECT_EQ(recording.output().find(recording.folder.path().toStdString() + "/Recording at"),
              std::string::npos);
}

// A pause of a second leaves no frozen second: the file lasts the recorded time, and no two
// frames are farther apart than a few intervals.
TEST(RecordCommandTest, PauseLeavesNoGap) {
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    Recording recording({"--duration", "2"});
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    std::this_thread::sleep_for(700ms);
    ::kill(recording.process.pid(), SIGUSR1);
    ASSERT_TRUE(
        waitUntil([&] { return recording.errors().find("Paused") != std::string::npos; }, 5s));
    std::this_thread::sleep_for(1s);
    ::kill(recording.process.pid(), SIGUSR1);
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();
    EXPECT_NE(recording.errors().find("Resumed"), std::string::npos);

    const auto probed = probeMovie(recording.printedPaths().first);
    ASSERT_TRUE(probed.has_value());
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    // --duration counts recorded time only: 2 s, not the 3 s the run took.
    EXPECT_NEAR(video->endSeconds, 2.0, 1.0 / 30 + 0.25);
    EXPECT_LT(maxGap(video->packetTimes), 0.2);
}

// `list` shows the display with the size --area works in, and the managed windows.
TEST(RecordCommandTest, ListShowsDisplaysAndWindows) {
    REQUIRE_XVFB(desktop());
    REQUIRE_TOOL("xmessage");
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    session.launch({"xmessage", "-title", "Listed Window", "hello"});

    std::string displays;
    EXPECT_EQ(runInProcess(runList, {"displays"}, &displays).first, 0);
    EXPECT_NE(displays.find("640x480+0+0"), std::string::npos) << displays;

    std::string windows;
    EXPECT_TRUE(waitUntil(
        [&] {
            runInProcess(runList, {"windows"}, &windows);
            return windows.find("Listed Window") != std::string::npos;
        },
        5s))
        << windows;
    EXPECT_NE(windows.find("xmessage"), std::string::npos);
    EXPECT_EQ(runInProcess(runList, {"monitors"}).first, 2);
}

// A window recording shows the window alone: another window in front of it leaves no trace.
TEST(RecordCommandTest, WindowRecordingIgnoresWindowsInFront) {
    REQUIRE_XVFB(desktop());
    REQUIRE_TOOL("xmessage");
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    session.launch({"xmessage", "-title", "Back", "-bg", "red", "-fg", "red", "-geometry",
                    "300x200+100+80", " "});
    std::string windows;
    ASSERT_TRUE(waitUntil(
        [&] {
            runInProcess(runList, {"windows"}, &windows);
            return windows.find("\tBack") != std::string::npos;
        },
        5s));
    session.launch({"xmessage", "-title", "Front", "-bg", "blue", "-fg", "blue", "-geometry",
                    "200x150+200+150", " "});
    ASSERT_TRUE(waitUntil(
        [&] {
            runInProcess(runList, {"windows"}, &windows);
            return windows.find("\tFront") != std::string::npos;
        },
        5s));
    std::this_thread::sleep_for(300ms);
    // The line of the back window starts with its id.
    const size_t line = windows.rfind('\n', windows.find("\tBack")) + 1;
    const std::string id = windows.substr(line, windows.find('\t', line) - line);

    Recording recording(
        {"--mode", "window", "--window", QString::fromStdString(id), "--duration", "1"});
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();
    const AVFramePtr picture = decodeFirstPicture(recording.printedPaths().first);
    ASSERT_TRUE(picture);
    // The frame with its decorations starts at the window's requested corner (100, 80). Image
    // (200, 150) is root (300, 230): under the blue window, inside the red client area.
    const int x = 200, y = 150;
    const uint8_t u = picture->data[1][(y / 2) * picture->linesize[1] + x / 2];
    const uint8_t v = picture->data[2][(y / 2) * picture->linesize[2] + x / 2];
    EXPECT_GT(v, 200) << "not red";
    EXPECT_LT(u, 128) << "blue shows through";
}

// A still screen gives two frames a second, yet the file lasts as long as the recording did.
TEST(RecordCommandTest, StillScreenKeepsItsDuration) {
    REQUIRE_XVFB(desktop());
    XvfbSession session(desktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    std::this_thread::sleep_for(300ms); // let the window manager finish drawing

    Recording recording({"--duration", "2"});
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();
    const auto probed = probeMovie(recording.printedPaths().first);
    ASSERT_TRUE(probed.has_value());
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    // Of the 60 ticks at 30 per second: two frames a second, which keep the file on disk
    // current, and the closing one.
    EXPECT_LE(video->packetTimes.size(), 7u);
    EXPECT_NEAR(video->endSeconds, 2.0, 1.0 / 30 + 0.25);
}
