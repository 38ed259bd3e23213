#include "support/CliRun.h"
#include "support/MissingTool.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {
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
        CliRun cli({"edit", file}, {}, {"DISPLAY"});
        EXPECT_EQ(cli.waitForExit(20s), 2) << file;
        const std::string err = cli.errors();
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
    CliRun cli({"edit", movie},
               {{"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
                {"XDG_CONFIG_HOME", "/tmp/tq-edit-test-config"}},
               {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY"});
    const auto found =
        commandOutput({"xdotool", "search", "--sync", "--name", "Walkthrough.mp4"}, 15s);
    EXPECT_TRUE(found.has_value() && !found->empty()) << "no trimmer window named the file";
    EXPECT_TRUE(cli.process.isRunning());
}
} // namespace
