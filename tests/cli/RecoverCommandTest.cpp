#include "cli/RecoverCommand.h"

#include "core/metadata/MetadataFile.h"
#include "core/support/Formatters.h"
#include "media/MovieProbe.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/XvfbSession.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
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

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

XvfbSession::Options stillDesktop() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    options.windowManager = true;
    return options;
}

// One tavelquiston-cli run with its output in files of the test's own.
struct Command {
    Command(const std::vector<std::string>& arguments, const QString& logs, const QString& name) {
        std::vector<std::string> argv = {TAVELQUISTON_CLI_PATH};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        ChildProcess::Options options;
        outPath = (logs + "/" + name + ".out").toStdString();
        errPath = (logs + "/" + name + ".err").toStdString();
        options.stdoutPath = outPath;
        options.stderrPath = errPath;
        process = ChildProcess(argv, options);
    }
    std::string output() const { return readText(outPath); }
    std::string errors() const { return readText(errPath); }

    std::string outPath, errPath;
    ChildProcess process;
};

} // namespace

// `record` killed without warning six seconds into a recording of a still screen, then
// `recover`: the recovered movie plays to within two seconds of the kill, its metadata has the
// same length, and a second `recover` finds nothing more to do.
TEST(RecoverCommandTest, AKilledRecordingIsRecovered) {
    REQUIRE_XVFB(stillDesktop());
    XvfbSession session(stillDesktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    QTemporaryDir logs, folder;
    // Not there yet: record makes it.
    const std::string dir = (folder.path() + "/new folder").toStdString();

    Command recording({"record", "--output", dir, "--fps", "30"}, logs.path(), "record");
    ASSERT_TRUE(waitUntil(
        [&] {
            return recording.output().find("Successfully appended video frame #1") !=
                   std::string::npos;
        },
        10s))
        << recording.errors();
    const auto firstFrame = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(6s);
    ::kill(recording.process.pid(), SIGKILL);
    const double killedAt =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - firstFrame).count();
    recording.process.waitForExit(5s);

    Command recover({"recover", dir}, logs.path(), "recover");
    ASSERT_EQ(recover.process.waitForExit(30s), 0) << recover.errors();
    const std::vector<std::string> printed = lines(recover.output());
    ASSERT_FALSE(printed.empty());
    const std::filesystem::path movie = printed.back();
    EXPECT_NE(movie.filename().string().find(" (Recovered).mov"), std::string::npos) << movie;
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed) << movie;
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_GE(video->endSeconds, killedAt - 2.0);
    EXPECT_TRUE(decodeFirstPicture(movie));
    const RecordingMetadata metadata = readMetadataFile(QString::fromStdString(
        (movie.parent_path() / ("." + movie.stem().string() + ".metadata.json")).string()));
    EXPECT_NEAR(metadata.duration, video->endSeconds, 0.01);
    EXPECT_EQ(metadata.resolution, (Size{640, 480}));

    Command again({"recover", dir}, logs.path(), "again");
    EXPECT_EQ(again.process.waitForExit(30s), 0) << again.errors();
    EXPECT_EQ(again.output(), "");
    EXPECT_NE(again.errors().find("No unfinished recordings"), std::string::npos) << again.errors();
    // The recovered movie and its metadata are all that is left.
    EXPECT_EQ(QDir(QString::fromStdString(dir)).entryList(QDir::Files | QDir::Hidden).size(), 2);
}

// Two recordings started together into a folder where their names are taken already (by files
// made for every second of the next quarter minute): nothing there is overwritten, and both
// recordings are kept, under numbered names.
TEST(RecoverCommandTest, RecordingsNeverOverwriteAFile) {
    REQUIRE_XVFB(stillDesktop());
    XvfbSession session(stillDesktop());
    ASSERT_TRUE(session.isReady()) << session.error();
    QTemporaryDir logs, folder;
    const QString newFolder = folder.path();
    const QDateTime now = QDateTime::currentDateTime();
    for (int second = 0; second < 15; ++second) {
        QFile taken(newFolder + "/Recording at " + formattedForFilename(now.addSecs(second)) +
                    ".mov");
        ASSERT_TRUE(taken.open(QIODevice::WriteOnly));
        taken.write("someone else's file");
    }

    std::vector<std::unique_ptr<Command>> recordings;
    for (const char* name : {"first", "second"})
        recordings.push_back(std::make_unique<Command>(
            std::vector<std::string>{"record", "--output", newFolder.toStdString(), "--duration",
                                     "1", "--fps", "30"},
            logs.path(), name));
    std::vector<std::string> movies;
    for (const auto& recording : recordings) {
        ASSERT_EQ(recording->process.waitForExit(30s), 0) << recording->errors();
        const auto printed = lines(recording->output());
        ASSERT_GE(printed.size(), 2u);
        movies.push_back(printed[printed.size() - 2]);
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
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    EXPECT_EQ(runRecover({"/no/such/folder"}, out, err), 2);
    std::rewind(err);
    char text[512] = {};
    std::fread(text, 1, sizeof text - 1, err);
    EXPECT_NE(std::string(text).find("/no/such/folder"), std::string::npos) << text;
    std::fclose(out);
    std::fclose(err);
}
