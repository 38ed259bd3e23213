#include "support/ChildProcess.h"
#include "support/MissingTool.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace std::chrono_literals;

namespace {
std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// A file that is missing or not a movie fails on the command line, naming it, with status 2:
// no window, no dialog.
TEST(EditCommandTest, badFilesFailWithStatusTwo) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const QString text = QDir(folder.path()).filePath("notes.mov");
    QFile notes(text);
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("plain words");
    notes.close();
    for (const std::string& file :
         {QDir(folder.path()).filePath("absent.mov").toStdString(), text.toStdString()}) {
        ChildProcess::Options options;
        options.stderrPath = folder.filePath("err.txt").toStdString();
        options.unsetEnvironment = {"DISPLAY"};
        ChildProcess cli({TAVELQUISTON_CLI_PATH, "edit", file}, options);
        const auto status = cli.waitForExit(20s);
        ASSERT_TRUE(status.has_value());
        EXPECT_EQ(*status, 2) << file;
        const std::string err = readFile(*options.stderrPath);
        EXPECT_NE(err.find("❌ Failed to load asset"), std::string::npos) << err;
        EXPECT_NE(err.find(std::filesystem::path(file).filename().string()), std::string::npos)
            << err;
    }
}

// A good recording opens in the desktop program's trimmer, named after the file.
TEST(EditCommandTest, opensTheTrimmerOnXvfb) {
    REQUIRE_TOOL("ffmpeg");
    XvfbSession::Options xvfb;
    xvfb.windowManager = true;
    REQUIRE_XVFB(xvfb);
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const std::string movie = folder.filePath("Walkthrough.mp4").toStdString();
    ASSERT_EQ(runCommand({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                          "testsrc2=size=320x180:rate=30", "-t", "1", "-c:v", "libx264", "-preset",
                          "ultrafast", "-pix_fmt", "yuv420p", movie},
                         60s),
              0);
    XvfbSession session(xvfb);
    ASSERT_TRUE(session.isReady()) << session.error();
    ChildProcess::Options options;
    options.unsetEnvironment = {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY"};
    options.environment = {{"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
                           {"XDG_CONFIG_HOME", "/tmp/tq-edit-test-config"}};
    ChildProcess cli({TAVELQUISTON_CLI_PATH, "edit", movie}, options);
    const auto found =
        commandOutput({"xdotool", "search", "--sync", "--name", "Walkthrough.mp4"}, 15s);
    EXPECT_TRUE(found.has_value() && !found->empty()) << "no trimmer window named the file";
    EXPECT_TRUE(cli.isRunning());
}
} // namespace
