#include "RootScreenshot.h"
#include "TestArtifacts.h"
#include "media/MovieProbe.h"

#include "support/DBusSession.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextStream>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <thread>

using namespace std::chrono_literals;

namespace {
// The application on its own Xvfb, window manager and session bus, with settings, state and
// output in a temporary folder.
class DesktopApplication {
public:
    explicit DesktopApplication(const QString& settings) {
        QDir(folder.path()).mkpath("config/tavelquiston");
        QDir(folder.path()).mkpath("out");
        QFile ini(folder.filePath("config/tavelquiston/tavelquiston.ini"));
        ini.open(QIODevice::WriteOnly);
        ini.write(("[General]\noutputDirectory=" + outputFolder() + "\n" + settings).toUtf8());
        ini.close();
        options.unsetEnvironment = {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY"};
        options.environment = {{"XDG_CONFIG_HOME", folder.filePath("config").toStdString()},
                               {"XDG_STATE_HOME", folder.filePath("state").toStdString()},
                               {"DBUS_SESSION_BUS_ADDRESS", bus.address()}};
    }

    QString outputFolder() const { return folder.filePath("out"); }
    std::string logPath() const { return folder.filePath("app.log").toStdString(); }

    // Starts the program; the milliseconds until its main window was on the server.
    std::optional<double> start() {
        ChildProcess::Options appOptions = options;
        appOptions.stdoutPath = logPath();
        const auto began = std::chrono::steady_clock::now();
        app = ChildProcess({TAVELQUISTON_APP_PATH}, appOptions);
        if (!waitForWindow("^tavelquiston$"))
            return std::nullopt;
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began)
            .count();
    }
    // Runs `tavelquiston <argument>` as a person's shortcut would; its exit status.
    std::optional<int> command(const std::string& argument) {
        return runCommand({TAVELQUISTON_APP_PATH, argument}, 10s, options);
    }
    bool waitForWindow(const std::string& name) {
        const auto found = commandOutput(
            {"xdotool", "search", "--sync", "--onlyvisible", "--name", name}, 10s, options);
        return found && !found->empty();
    }
    bool xdotool(const std::vector<std::string>& arguments) {
        std::vector<std::string> argv{"xdotool"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return runCommand(argv, 10s, options) == 0;
    }
    // The movie and its metadata once both are written, within `timeout`.
    std::optional<std::pair<QString, QString>> waitForRecording(std::chrono::seconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < deadline) {
            const QDir out(outputFolder());
            const QStringList movies = out.entryList({"Recording at *.mov"}, QDir::Files);
            const QStringList metadata =
                out.entryList({".Recording at *.metadata.json"}, QDir::Files | QDir::Hidden);
            if (!movies.isEmpty() && !metadata.isEmpty())
                return std::pair(out.filePath(movies.front()), out.filePath(metadata.front()));
            std::this_thread::sleep_for(100ms);
        }
        return std::nullopt;
    }
    // The last start-up trace's total up to `phase`, in milliseconds.
    std::optional<double> traceMilliseconds(const QString& phase) const {
        QFile log(folder.filePath("state/tavelquiston/startup-timing.log"));
        if (!log.open(QIODevice::ReadOnly))
            return std::nullopt;
        std::optional<double> found;
        const QRegularExpression line(QStringLiteral("/\\s*([0-9.]+)ms\\s+") + phase);
        for (const QString& text : QString::fromUtf8(log.readAll()).split('\n'))
            if (const auto match = line.match(text); match.hasMatch())
                found = match.captured(1).toDouble();
        return found;
    }

    QTemporaryDir folder;
    DBusSession bus;
    ChildProcess::Options options;
    ChildProcess app;
};

XvfbSession::Options desktop() {
    XvfbSession::Options options;
    options.windowManager = true;
    return options;
}
} // namespace

// A person's whole road with the display: the program starts to its window, a shortcut command
// starts a recording of the display (the panel appears), another stops it after 3 s, and the
// movie and metadata lie in the output folder with the preview open on them.
TEST(ApplicationDesktopTest, ToggleRecordsTheDisplayToTheOutputFolder) {
    START_XVFB(session, desktop());
    REQUIRE_DBUS();
    REQUIRE_TOOL("xdotool");
    DesktopApplication program("countdown=0\nrecordSystemAudio=false\n");
    ASSERT_TRUE(program.bus.isReady()) << program.bus.error();
    // A tray for the status icon where the machine has one.
    std::optional<ChildProcess> tray;
    if (findExecutable("trayer"))
        tray.emplace(std::vector<std::string>{"trayer", "--edge", "top", "--align", "right",
                                              "--widthtype", "request"},
                     program.options);

    const std::optional<double> startToWindow = program.start();
    ASSERT_TRUE(startToWindow.has_value()) << "the main window never appeared";
    EXPECT_TRUE(saveRootScreenshot(testArtifactPath("desktop-main-window.png")));

    ASSERT_EQ(program.command("--toggle-recording"), 0);
    ASSERT_TRUE(program.waitForWindow("^Recording Controls$")) << "no recording panel";
    std::this_thread::sleep_for(1500ms);
    EXPECT_TRUE(saveRootScreenshot(testArtifactPath("desktop-panel-recording.png")));
    std::this_thread::sleep_for(1500ms);
    ASSERT_EQ(program.command("--stop"), 0);

    const auto recording = program.waitForRecording(15s);
    ASSERT_TRUE(recording.has_value())
        << "no movie and metadata in " << program.outputFolder().toStdString();
    const auto video = probeVideo(recording->first.toStdString());
    ASSERT_TRUE(video) << recording->first.toStdString();
    EXPECT_GT(video->endSeconds, 2.5);
    EXPECT_LT(video->endSeconds, 6.0);
    EXPECT_EQ(video->width, 1920);
    // The finished recording opens in the trimmer, titled with its file's name.
    EXPECT_TRUE(program.waitForWindow("Recording at")) << "the trimmer did not open";
    // The preview of the result shows on top of it for a moment.
    EXPECT_TRUE(program.waitForWindow("^Preview$")) << "no preview of the finished recording";
    EXPECT_TRUE(saveRootScreenshot(testArtifactPath("desktop-trimmer.png")));
    EXPECT_TRUE(program.app.isRunning());
    // The same file opened again, as a file manager would, goes to the running program, which
    // brings its trimmer forward instead of making a second one.
    EXPECT_EQ(program.command(recording->first.toStdString()), 0);
    std::this_thread::sleep_for(700ms);
    const auto trimmers = commandOutput(
        {"xdotool", "search", "--onlyvisible", "--name", "Recording at"}, 10s, program.options);
    ASSERT_TRUE(trimmers.has_value());
    EXPECT_EQ(QString::fromStdString(*trimmers).trimmed().split(QLatin1Char('\n')).size(), 1)
        << *trimmers;

    // A second start hands over to the running program instead of starting another.
    EXPECT_EQ(runCommand({TAVELQUISTON_APP_PATH}, 10s, program.options), 0);
    EXPECT_TRUE(program.app.isRunning());
    const auto firstFrame = program.traceMilliseconds("firstVideoFrameAppended");
    EXPECT_TRUE(firstFrame.has_value()) << "the start-up trace has no first frame";
    // The program's own figure (main() to the window drawn); the outside one includes xdotool's
    // polling.
    QFile log(QString::fromStdString(program.logPath()));
    log.open(QIODevice::ReadOnly);
    const auto shown = QRegularExpression(QStringLiteral("Main window shown ([0-9.]+) ms"))
                           .match(QString::fromUtf8(log.readAll()));
    EXPECT_TRUE(shown.hasMatch());
    fmt::print("📏 start to window {:.1f} ms (seen from outside within {:.0f} ms); command to "
               "first frame {:.1f} ms\n",
               shown.captured(1).toDouble(), *startToWindow, firstFrame.value_or(-1));
}

// The area selector dragged with the pointer: the recording has the dragged size.
TEST(ApplicationDesktopTest, DraggedAreaIsTheRecordingsSize) {
    START_XVFB(session, desktop());
    REQUIRE_DBUS();
    REQUIRE_TOOL("xdotool");
    DesktopApplication program("countdown=0\nrecordSystemAudio=false\nvideoEncoder=h264\n");
    ASSERT_TRUE(program.bus.isReady()) << program.bus.error();
    ASSERT_TRUE(program.start().has_value());

    // Keyboard first: 2 is the area mode, Enter opens its selector.
    ASSERT_TRUE(program.xdotool(
        {"search", "--onlyvisible", "--name", "^tavelquiston$", "windowactivate", "--sync"}));
    ASSERT_TRUE(program.xdotool({"key", "2"}));
    std::this_thread::sleep_for(300ms); // a shortcut clicks with a short animation
    ASSERT_TRUE(program.xdotool({"key", "Return"}));
    ASSERT_TRUE(program.waitForWindow("^Select Area$"));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(program.xdotool({"mousemove", "300", "200", "mousedown", "1", "mousemove", "600",
                                 "400", "mousemove", "940", "680", "mouseup", "1"}));
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(saveRootScreenshot(testArtifactPath("desktop-area-selector.png")));
    ASSERT_TRUE(program.xdotool({"key", "Return"}));
    ASSERT_TRUE(program.waitForWindow("^Recording Controls$"));
    std::this_thread::sleep_for(1500ms);
    ASSERT_EQ(program.command("--stop"), 0);

    const auto recording = program.waitForRecording(15s);
    ASSERT_TRUE(recording.has_value());
    const auto video = probeVideo(recording->first.toStdString());
    ASSERT_TRUE(video);
    EXPECT_EQ(video->width, 640);
    EXPECT_EQ(video->height, 480);
}

// The global key starts and stops a recording while another program has the focus.
TEST(ApplicationDesktopTest, GlobalKeyStartsAndStopsFromAnywhere) {
    START_XVFB(session, desktop());
    REQUIRE_DBUS();
    REQUIRE_TOOL("xdotool");
    DesktopApplication program("countdown=0\nrecordSystemAudio=false\n");
    ASSERT_TRUE(program.bus.isReady()) << program.bus.error();
    ASSERT_TRUE(program.start().has_value());
    // Focus on nothing of ours: the root window.
    ASSERT_TRUE(program.xdotool({"mousemove", "10", "1000", "click", "1"}));

    ASSERT_TRUE(program.xdotool({"key", "ctrl+alt+r"}));
    ASSERT_TRUE(program.waitForWindow("^Recording Controls$")) << "the key started nothing";
    std::this_thread::sleep_for(1200ms);
    ASSERT_TRUE(program.xdotool({"key", "ctrl+alt+r"}));
    const auto recording = program.waitForRecording(15s);
    ASSERT_TRUE(recording.has_value()) << "the key did not stop and save the recording";
    const auto probed = probeMovie(recording->first.toStdString());
    ASSERT_TRUE(probed.has_value());
    EXPECT_GT(probed->first(AVMEDIA_TYPE_VIDEO)->endSeconds, 0.8);
}
