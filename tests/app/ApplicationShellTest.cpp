#include "app/ApplicationShell.h"
#include "app/MainWindow.h"

#include "support/TextFiles.h"
#include "support/XvfbSession.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

// Without any display the program says why on standard error and exits non-zero, at once.
TEST(ApplicationShellTest, withoutDisplayExplainsAndFails) {
    ChildProcess::Options options;
    options.unsetEnvironment = {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"};
    options.stderrPath = "/tmp/tq-app-nodisplay.err";
    ChildProcess app({TAVELQUISTON_APP_PATH}, options);
    const auto status = app.waitForExit(10s);
    ASSERT_TRUE(status.has_value()) << "the program kept running without a display";
    EXPECT_EQ(*status, 1);
    EXPECT_NE(readText(*options.stderrPath).find("❌ No display found"), std::string::npos);
}

// On a real X server with a window manager, the program's main window appears under its title.
// Asked for the screen-recording permission, it says that X11 needs no grant and still comes up.
TEST(ApplicationShellTest, startsOnXvfbAndShowsItsWindow) {
    XvfbSession::Options xvfb;
    xvfb.windowManager = true;
    START_XVFB(session, xvfb);

    for (const bool askPermission : {false, true}) {
        SCOPED_TRACE(askPermission ? "--request-screen-recording-permission" : "no option");
        QTemporaryDir folder;
        ChildProcess::Options options;
        options.unsetEnvironment = {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY"};
        options.environment = {{"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
                               {"XDG_CONFIG_HOME", "/tmp/tq-app-test-config"}};
        options.stdoutPath = folder.filePath("out.txt").toStdString();
        std::vector<std::string> argv = {TAVELQUISTON_APP_PATH};
        if (askPermission)
            argv.push_back("--request-screen-recording-permission");
        ChildProcess app(argv, options);
        const auto found =
            commandOutput({"xdotool", "search", "--sync", "--name", "^tavelquiston$"}, 10s);
        EXPECT_TRUE(found.has_value() && !found->empty())
            << "no window titled tavelquiston appeared";
        EXPECT_TRUE(app.isRunning());
        app.stop();
        const std::string printed = readText(*options.stdoutPath);
        if (askPermission) {
            EXPECT_NE(printed.find("✅ Screen Recording permission is authorized"),
                      std::string::npos)
                << printed;
        }
    }
}
