#include "support/ChildProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {
// Packaging tools are part of the build machine in CI; elsewhere their absence only skips.
#define REQUIRE_PACKAGING_TOOL(name)                                                               \
    do {                                                                                           \
        if (!findExecutable(name)) {                                                               \
            if (qgetenv("CI") == "true")                                                           \
                FAIL() << "'" << (name) << "' is missing on CI; run scripts/install-deps.sh";      \
            GTEST_SKIP() << "'" << (name) << "' is not installed; run scripts/install-deps.sh";    \
        }                                                                                          \
    } while (0)

QString readText(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}
} // namespace

// The Debian package holds both programs, the menu entry, the icons and the AppStream data
// where a desktop looks for them, declares the libraries it needs, and its program runs.
TEST(DebianPackageTest, PackageInstallsTheDesktopProgram) {
    REQUIRE_PACKAGING_TOOL("cpack");
    REQUIRE_PACKAGING_TOOL("dpkg-deb");
    QTemporaryDir folder;
    const QString output = folder.filePath("package");
    const QString config = QStringLiteral(TAVELQUISTON_BUILD_DIR "/CPackConfig.cmake");
    ASSERT_TRUE(QFileInfo::exists(config)) << config.toStdString();
    ASSERT_EQ(runCommand({"cpack", "-G", "DEB", "--config", config.toStdString(), "-B",
                          output.toStdString()},
                         120s),
              0);
    const QStringList debs = QDir(output).entryList({"tavelquiston_*.deb"}, QDir::Files);
    ASSERT_EQ(debs.size(), 1) << "no single package in " << output.toStdString();
    const std::string deb = QDir(output).filePath(debs.front()).toStdString();

    const QString root = folder.filePath("root");
    ASSERT_EQ(runCommand({"dpkg-deb", "-x", deb, root.toStdString()}, 30s), 0);
    for (const char* program : {"usr/bin/tavelquiston", "usr/bin/tavelquiston-cli"}) {
        const QFileInfo info(QDir(root).filePath(program));
        EXPECT_TRUE(info.isFile() && info.isExecutable()) << program;
    }
    const QString desktop =
        readText(QDir(root).filePath("usr/share/applications/com.tavelquiston.app.desktop"));
    EXPECT_TRUE(desktop.contains("\nExec=tavelquiston\n")) << desktop.toStdString();
    EXPECT_TRUE(desktop.contains("\nIcon=com.tavelquiston.app\n"));
    for (const char* icon : {"usr/share/icons/hicolor/scalable/apps/com.tavelquiston.app.svg",
                             "usr/share/icons/hicolor/48x48/apps/com.tavelquiston.app.png",
                             "usr/share/icons/hicolor/256x256/apps/com.tavelquiston.app.png",
                             "usr/share/metainfo/com.tavelquiston.app.metainfo.xml"})
        EXPECT_TRUE(QFileInfo(QDir(root).filePath(icon)).size() > 0) << icon;

    const auto depends = commandOutput({"dpkg-deb", "-f", deb, "Depends"}, 10s);
    ASSERT_TRUE(depends.has_value());
    for (const char* library : {"libqt6widgets6", "libavcodec59", "libxcb-shm0", "qt6-qpa-plugins"})
        EXPECT_NE(depends->find(library), std::string::npos) << library << " in " << *depends;

    // The packaged program itself starts: without a display it says so and stops.
    ChildProcess::Options options;
    options.unsetEnvironment = {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"};
    EXPECT_EQ(runCommand({QDir(root).filePath("usr/bin/tavelquiston").toStdString()}, 10s, options),
              1);
}
