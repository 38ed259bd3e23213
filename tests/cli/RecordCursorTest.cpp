#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;

namespace {

std::string readText(const QString& path) {
    std::ifstream in(path.toStdString());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// One `record` run with click-to-zoom on (which turns the pointer monitor on) and the smart
// decision off, so the picture is never zoomed; clicks pass a 0.1 s threshold.
class CursorRecording {
public:
    explicit CursorRecording(const std::vector<std::string>& extra) {
        std::vector<std::string> argv = {TAVELQUISTON_CLI_PATH,       "record",       "--output",
                                         folder.path().toStdString(), "--fps",        "30",
                                         "--click-to-zoom",           "--smart-zoom", "off",
                                         "--click-threshold",         "0.1"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        ChildProcess::Options options;
        options.stdoutPath = (folder.path() + "/stdout.txt").toStdString();
        options.stderrPath = (folder.path() + "/stderr.txt").toStdString();
        process = ChildProcess(argv, options);
    }
    std::string output() const { return readText(folder.path() + "/stdout.txt"); }
    std::string errors() const { return readText(folder.path() + "/stderr.txt"); }
    bool waitFor(const std::string& text, const std::string& in = "stdout") {
        return waitUntil(
            [&] { return (in == "stdout" ? output() : errors()).find(text) != std::string::npos; },
            10s);
    }
    QJsonObject metadata() const {
        std::istringstream in(output());
        std::string last;
        for (std::string line; std::getline(in, line);)
            last = line;
        QFile file(QString::fromStdString(last));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    QTemporaryDir folder;
    ChildProcess process;
};

struct Click {
    QString type;
    double x = 0, y = 0, t = 0;
};

std::vector<Click> clicksOf(const QJsonObject& metadata) {
    std::vector<Click> clicks;
    for (const QJsonValue& value : metadata.value("cursorClicks").toArray()) {
        const QJsonObject click = value.toObject();
        const QJsonArray at = click.value("position").toArray();
        clicks.push_back({click.value("clickType").toString(), at[0].toDouble(), at[1].toDouble(),
                          click.value("timestamp").toDouble()});
    }
    return clicks;
}

XvfbSession::Options screen() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    return options;
}

bool xdotool(const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {"xdotool"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return runCommand(argv, 5s) == 0;
}

} // namespace

// Clicks through XTEST during a display recording land with their type and their top-left
// position normalised to the display; a double click adds one click of count 2; two presses
// closer than the threshold keep only the first; positions are sampled about 30 times a second
// at rest and follow a path the pointer takes.
TEST(RecordCursorTest, DisplayRecordingCarriesClicksAndPositions) {
    REQUIRE_XVFB(screen());
    REQUIRE_TOOL("xdotool");
    XvfbSession session(screen());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation; // frames keep the video's time line moving
    ASSERT_TRUE(session.moveTo(10, 10));

    CursorRecording recording({"--duration", "5"});
    ASSERT_TRUE(recording.waitFor("Successfully appended video frame #1")) << recording.errors();
    // A second at rest first, for the sampling rate.
    std::this_thread::sleep_for(1100ms);
    ASSERT_TRUE(session.moveTo(160, 120));
    ASSERT_TRUE(session.click(1));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(480, 360));
    ASSERT_TRUE(xdotool({"click", "--repeat", "2", "--delay", "150", "1"}));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(320, 240));
    ASSERT_TRUE(xdotool({"click", "--repeat", "2", "--delay", "30", "3"}));
    std::this_thread::sleep_for(300ms);
    // A path across the screen at one height.
    for (int x = 0; x <= 600; x += 40) {
        ASSERT_TRUE(session.moveTo(x, 60));
        std::this_thread::sleep_for(40ms);
    }
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();

    const QJsonObject metadata = recording.metadata();
    const std::vector<Click> clicks = clicksOf(metadata);
    ASSERT_EQ(clicks.size(), 4u) << recording.output();
    const double pixel = 1.0 / 480;
    EXPECT_EQ(clicks[0].type, "leftClick");
    EXPECT_NEAR(clicks[0].x, 160.0 / 640, pixel);
    EXPECT_NEAR(clicks[0].y, 120.0 / 480, pixel);
    EXPECT_EQ(clicks[1].type, "leftClick");
    EXPECT_EQ(clicks[2].type, "doubleClick");
    EXPECT_NEAR(clicks[2].x, 480.0 / 640, pixel);
    EXPECT_NEAR(clicks[2].y, 360.0 / 480, pixel);
    EXPECT_NEAR(clicks[2].t - clicks[1].t, 0.15, 0.1);
    EXPECT_EQ(clicks[3].type, "rightClick");
    EXPECT_NEAR(clicks[3].x, 0.5, pixel);
    const double duration = metadata.value("duration").toDouble();
    for (size_t i = 0; i < clicks.size(); ++i) {
        EXPECT_GT(clicks[i].t, 1.0);
        EXPECT_LT(clicks[i].t, duration);
        if (i > 0) {
            EXPECT_GT(clicks[i].t, clicks[i - 1].t);
        }
    }

    std::vector<std::pair<double, QJsonArray>> positions;
    for (const QJsonValue& value : metadata.value("cursorPositions").toArray())
        positions.emplace_back(value.toObject().value("timestamp").toDouble(),
                               value.toObject().value("position").toArray());
    ASSERT_FALSE(positions.empty());
    // At rest between 0.2 s and 1.0 s only the timer samples.
    const auto atRest = std::count_if(positions.begin(), positions.end(), [](const auto& p) {
        return p.first >= 0.2 && p.first < 1.0;
    });
    EXPECT_NEAR(double(atRest) / 0.8, 30.0, 3.0);
    // The path: samples at the path's height move right and span most of it.
    std::vector<double> pathX;
    for (const auto& [time, at] : positions)
        if (time > clicks.back().t && std::abs(at[1].toDouble() - 60.0 / 480) < pixel)
            pathX.push_back(at[0].toDouble());
    ASSERT_GT(pathX.size(), 10u);
    EXPECT_TRUE(std::is_sorted(pathX.begin(), pathX.end()));
    EXPECT_LT(pathX.front(), 0.1);
    EXPECT_GT(pathX.back(), 0.9);
}

// An area recording normalises clicks to the area; a click outside it and a click while
// paused are not recorded.
TEST(RecordCursorTest, AreaRecordingKeepsItsOwnClicks) {
    REQUIRE_XVFB(screen());
    REQUIRE_TOOL("xdotool");
    XvfbSession session(screen());
    ASSERT_TRUE(session.isReady()) << session.error();
    ScreenAnimation animation;

    CursorRecording recording({"--area", "100,100,200,100", "--duration", "3"});
    ASSERT_TRUE(recording.waitFor("Successfully appended video frame #1")) << recording.errors();
    ASSERT_TRUE(session.moveTo(150, 125));
    ASSERT_TRUE(session.click(1));
    std::this_thread::sleep_for(200ms);
    ASSERT_TRUE(session.moveTo(400, 400));
    ASSERT_TRUE(session.click(1));
    std::this_thread::sleep_for(200ms);
    ::kill(recording.process.pid(), SIGUSR1);
    ASSERT_TRUE(recording.waitFor("Paused", "stderr"));
    ASSERT_TRUE(session.moveTo(250, 175));
    ASSERT_TRUE(session.click(3));
    std::this_thread::sleep_for(200ms);
    ::kill(recording.process.pid(), SIGUSR1);
    ASSERT_TRUE(recording.waitFor("Resumed", "stderr"));
    ASSERT_TRUE(session.moveTo(290, 195));
    ASSERT_TRUE(session.click(1));
    ASSERT_EQ(recording.process.waitForExit(20s), 0) << recording.errors();

    const std::vector<Click> clicks = clicksOf(recording.metadata());
    ASSERT_EQ(clicks.size(), 2u) << recording.output();
    EXPECT_NEAR(clicks[0].x, 50.0 / 200, 1.0 / 200);
    EXPECT_NEAR(clicks[0].y, 25.0 / 100, 1.0 / 100);
    EXPECT_EQ(clicks[1].type, "leftClick");
    EXPECT_NEAR(clicks[1].x, 190.0 / 200, 1.0 / 200);
    EXPECT_NEAR(clicks[1].y, 95.0 / 100, 1.0 / 100);
}
