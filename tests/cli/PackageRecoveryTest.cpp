#include "core/metadata/MetadataFile.h"
#include "media/MovieProbe.h"
#include "media/layers/MediaLayerRecordingManager.h"
#include "platform/x11/X11Connection.h"
#include "support/CliRun.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

using namespace std::chrono_literals;

namespace {

// What a kept package must be: it opens as a finished one does, both layers play for about as
// long as the recording ran until `end` (seconds after its first frame), the metadata has the
// screen layer's length, and the export makes a movie of it with the camera.
void expectWholePackage(const std::string& folder, double end, const QString& logs) {
    SCOPED_TRACE(folder);
    EXPECT_NE(folder.find(" (Recovered)"), std::string::npos);
    RecordingPackage package;
    ASSERT_NO_THROW(package =
                        MediaLayerRecordingManager::loadPackage(QString::fromStdString(folder)));
    const auto screenVideo = probeVideo(package.screenVideoURL.toStdString());
    ASSERT_TRUE(screenVideo);
    EXPECT_GE(screenVideo->endSeconds, end - 2.5);
    EXPECT_LE(screenVideo->endSeconds, end + 0.5);
    ASSERT_TRUE(package.cameraVideoURL.has_value());
    const auto camera = probeMovie(package.cameraVideoURL->toStdString());
    ASSERT_TRUE(camera);
    ASSERT_NE(camera->first(AVMEDIA_TYPE_VIDEO), nullptr);
    EXPECT_GE(camera->first(AVMEDIA_TYPE_VIDEO)->endSeconds, end - 3.0);
    EXPECT_TRUE(decodeFirstPicture(package.cameraVideoURL->toStdString()));
    const RecordingMetadata metadata = readMetadataFile(package.metadataURL);
    EXPECT_NEAR(metadata.duration, screenVideo->endSeconds, 0.05);
    EXPECT_NEAR(package.configuration.duration, screenVideo->endSeconds, 0.05);
    EXPECT_EQ(metadata.resolution.width, screenVideo->width);

    const std::string exported = (logs + "/exported.mp4").toStdString();
    CliRun exporting({"export", package.screenVideoURL.toStdString(), "--camera",
                      package.cameraVideoURL->toStdString(), "--output", exported});
    ASSERT_EQ(exporting.waitForExit(120s), 0) << exporting.errors();
    const auto made = probeMovie(exported);
    ASSERT_TRUE(made);
    ASSERT_NE(made->first(AVMEDIA_TYPE_VIDEO), nullptr);
    EXPECT_NEAR(made->first(AVMEDIA_TYPE_VIDEO)->endSeconds, screenVideo->endSeconds, 0.2);
}

} // namespace

// A separate-layers recording killed without warning, then `recover`: the package is made whole
// under a "(Recovered)" name, and a second `recover` finds nothing more to do.
TEST(PackageRecoveryTest, KilledPackageIsRecovered) {
    START_XVFB(session, XvfbSession::desktop());
    ScreenAnimation animation;
    QTemporaryDir logs, folder;
    const std::string dir = folder.path().toStdString();
    CliRun recording(
        {"record", "--output", dir, "--fps", "30", "--camera", "Test Camera", "--separate-layers"},
        withTestCamera({}));
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    const double killedAt = recording.killAfter(5s);

    CliRun recover({"recover", dir});
    ASSERT_EQ(recover.waitForExit(60s), 0) << recover.errors();
    // The recovered package's path is the last line (the log goes to the same output).
    const std::string kept = recover.printedLine();
    ASSERT_TRUE(std::filesystem::is_directory(kept)) << recover.output();
    expectWholePackage(kept, killedAt, logs.path());
    // Only the package is left in the folder, with no unfinished marker inside.
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{QString::fromStdString(std::filesystem::path(kept).filename())});
    for (const QString& name :
         QDir(QString::fromStdString(kept)).entryList(QDir::Files | QDir::Hidden))
        EXPECT_FALSE(name.endsWith(QStringLiteral(".unfinished"))) << name.toStdString();

    CliRun again({"recover", dir});
    EXPECT_EQ(again.waitForExit(30s), 0) << again.errors();
    EXPECT_NE(again.errors().find("No unfinished recordings"), std::string::npos) << again.errors();
}

// A separate-layers recording whose monitor goes away for good ends on the error path; what
// both layers recorded until then is kept as a package that opens as a finished one.
TEST(PackageRecoveryTest, InterruptedPackageIsSalvaged) {
    XvfbSession::Options screens;
    screens.twoMonitors = true;
    START_XVFB(session, screens);
    ScreenAnimation animation;
    QTemporaryDir logs;
    const uint32_t right = X11Connection().atom("right");
    RecordRun recording({"--fps", "30", "--display", std::to_string(right), "--camera",
                         "Test Camera", "--separate-layers"},
                        withTestCamera({}));
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    const auto firstFrame = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(3s);
    ASSERT_EQ(runCommand({"xrandr", "--delmonitor", "right"}, 5s), 0);
    const double removedAt =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - firstFrame).count();
    ASSERT_EQ(recording.waitForExit(30s), 1) << recording.output();
    EXPECT_NE(recording.errors().find("Recording Interrupted"), std::string::npos)
        << recording.errors();
    EXPECT_NE(recording.errors().find("(Recovered)"), std::string::npos) << recording.errors();
    std::string kept;
    for (const std::string& line : recording.outputLines())
        if (line.find(" (Recovered)") != std::string::npos && std::filesystem::is_directory(line))
            kept = line;
    ASSERT_FALSE(kept.empty()) << "the kept package's path was not printed";
    // The removal is noticed within a second; nothing after it was recorded.
    expectWholePackage(kept, removedAt + 1.0, logs.path());
}
