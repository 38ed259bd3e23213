#include "cli/RecoverCommand.h"

#include "cli/CommandOutcome.h"
#include "core/metadata/MetadataFile.h"
#include "core/support/Formatters.h"
#include "media/MovieProbe.h"
#include "support/CliRun.h"
#include "support/EventLoop.h"
#include "support/XvfbSession.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

using namespace std::chrono_literals;

// `record` killed without warning six seconds into a recording of a still screen, then
// `recover`: the recovered movie plays to within two seconds of the kill, its metadata has the
// same length, and a second `recover` finds nothing more to do.
TEST(RecoverCommandTest, AKilledRecordingIsRecovered) {
    START_XVFB(session, XvfbSession::desktop());
    QTemporaryDir folder;
    // Not there yet: record makes it.
    const std::string dir = (folder.path() + "/new folder").toStdString();

    CliRun recording({"record", "--output", dir, "--fps", "30"});
    ASSERT_TRUE(recording.waitForFirstFrame(10s)) << recording.errors();
    const double killedAt = recording.killAfter(6s);

    CliRun recover({"recover", dir});
    ASSERT_EQ(recover.waitForExit(30s), 0) << recover.errors();
    const std::filesystem::path movie = recover.printedLine();
    EXPECT_NE(movie.filename().string().find(" (Recovered).mov"), std::string::npos) << movie;
    const auto video = probeVideo(movie);
    ASSERT_TRUE(video) << movie;
    EXPECT_GE(video->endSeconds, killedAt - 2.0);
    EXPECT_TRUE(decodeFirstPicture(movie));
    const RecordingMetadata metadata = readMetadataFile(QString::fromStdString(
        (movie.parent_path() / ("." + movie.stem().string() + ".metadata.json")).string()));
    EXPECT_NEAR(metadata.duration, video->endSeconds, 0.01);
    EXPECT_EQ(metadata.resolution, (Size{640, 480}));

    CliRun again({"recover", dir});
    EXPECT_EQ(again.waitForExit(30s), 0) << again.errors();
    EXPECT_EQ(again.output(), "");
    EXPECT_NE(again.errors().find("No unfinished recordings"), std::string::npos) << again.errors();
    // The recovered movie and its metadata are all that is left.
    EXPECT_EQ(QDir(QString::fromStdString(dir)).entryList(QDir::Files | QDir::Hidden).size(), 2);
}

// Two recordings started together into a folder where their names are taken already (by files
// made for every second of the next quarter minute): nothing there is overwritten, and both
// recordings are kept, under numbered names.
TEST(RecoverCommandTest, RecordingsNeverOverwriteAFile) {
    START_XVFB(session, XvfbSession::desktop());
    QTemporaryDir folder;
    const QString newFolder = folder.path();
    const QDateTime now = QDateTime::currentDateTime();
    for (int second = 0; second < 15; ++second) {
        QFile taken(newFolder + "/Recording at " + formattedForFilename(now.addSecs(second)) +
                    ".mov");
        ASSERT_TRUE(taken.open(QIODevice::WriteOnly));
        taken.write("someone else's file");
    }

    std::vector<std::unique_ptr<CliRun>> recordings;
    for (int k = 0; k < 2; ++k)
        recordings.push_back(std::make_unique<CliRun>(std::vector<std::string>{
            "record", "--output", newFolder.toStdString(), "--duration", "1", "--fps", "30"}));
    std::vector<std::string> movies;
    for (const auto& recording : recordings) {
        ASSERT_EQ(recording->process.waitForExit(30s), 0) << recording->errors();
        // The movie, before its metadata file.
        movies.push_back(recording->printedLine(1));
    }
    EXPECT_NE(movies[0], movies[1]);
    for (const std::string& movie : movies) {
        EXPECT_NE(movie.find(" ("), std::string::npos) << movie << " has no number";
        auto probed = probeMovie(movie);
        ASSERT_TRUE(probed) << movie;
        EXPECT_NE(probed->first(AVMEDIA_TYPE_VIDEO), nullptr);
    }
    const QStringList taken = QDir(newFolder).entryList({"Recording at *.mov"}, QDir::Files);
    int untouched = 0;
    for (const QString& name : taken) {
        QFile file(newFolder + "/" + name);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        untouched += file.readAll() == "someone else's file";
    }
    EXPECT_EQ(untouched, 15);
    EXPECT_EQ(taken.size(), 17);
}

// Bad input is named, with the usage status.
TEST(RecoverCommandTest, AFolderThatIsNoneIsNamed) {
    const CommandOutcome outcome = runCommandEntry(runRecover, {"/no/such/folder"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find("/no/such/folder"), std::string::npos) << outcome.err;
}
