#include "core/metadata/MetadataFile.h"
#include "media/MovieProbe.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/ScreenAnimation.h"
#include "support/TextFiles.h"
#include "support/XvfbSession.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <sstream>

using namespace std::chrono_literals;

namespace {

size_t occurrences(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++count;
    return count;
}

// Runs a shell script in a mount namespace of its own, where it may mount a small tmpfs that no
// one else sees and that goes away with it: as root a plain private namespace, otherwise one of
// a user namespace. Empty when neither can mount here, else the command's prefix.
std::vector<std::string> privateMountPrefix(std::string* why) {
    for (std::vector<std::string> prefix :
         {std::vector<std::string>{"unshare", "-m"}, std::vector<std::string>{"unshare", "-Urm"}}) {
        if (prefix[1] == "-m" && geteuid() != 0)
            continue;
        std::vector<std::string> probe = prefix;
        probe.insert(probe.end(), {"sh", "-c", "mount -t tmpfs -o size=64k tmpfs /mnt"});
        if (runCommand(probe, 10s) == 0)
            return prefix;
    }
    *why = "no way to mount a small tmpfs here (neither as root nor in a user namespace)";
    return {};
}

// The free bytes of the small disk, sampled with the time (wall clock, seconds) inside the
// namespace: "<seconds> <free bytes>" per line.
struct SpaceSample {
    double time;
    long long freeBytes;
};

std::vector<SpaceSample> readSamples(const std::string& path) {
    std::vector<SpaceSample> samples;
    std::ifstream in(path);
    for (SpaceSample sample{}; in >> sample.time >> sample.freeBytes;)
        samples.push_back(sample);
    return samples;
}

double wallClockNow() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

} // namespace

// A recording onto a small disk that fills up: the writer's failure is met once (one "Recording
// Failed" however many frames fail after it), what reached the disk is kept as a playable
// "(Recovered)" movie that runs to within two seconds of the moment the disk was full, with its
// metadata, and nothing else is left on the disk; there was no room for a copy, so the movie's
// own bytes are what is kept.
TEST(FullDiskRecordingTest, FilledDiskKeepsWhatWasRecorded) {
    XvfbSession::Options screen;
    screen.width = 1280;
    screen.height = 720;
    REQUIRE_XVFB(screen);
    REQUIRE_TOOL("unshare");
    std::string why;
    const std::vector<std::string> prefix = privateMountPrefix(&why);
    if (prefix.empty())
        GTEST_SKIP() << why;
    XvfbSession session(screen);
    ASSERT_TRUE(session.isReady()) << session.error();
    // A picture that changes everywhere all the time: the movie grows by the second.
    ScreenAnimation animation(20ms);
    QTemporaryDir outside;
    const std::string disk = (outside.path() + "/disk").toStdString();
    const std::string kept = (outside.path() + "/kept").toStdString();
    const std::string space = (outside.path() + "/space.txt").toStdString();
    std::filesystem::create_directories(disk);
    std::filesystem::create_directories(kept);
    // The disk's free space is sampled twenty times a second while the recording runs; when it
    // ends, what is on the disk is copied out (the disk goes with the namespace).
    // A recording starts only with a gigabyte free: the disk has a little more, and once the
    // movie is on it a ballast takes all but 768 kB.
    const std::string script =
        "mount -t tmpfs -o size=1040m tmpfs \"$DISK\" || exit 90\n"
        "( while :; do echo \"$(date +%s.%N) "
        "$(( $(stat -f -c '%a*%S' \"$DISK\") ))\" >> \"$SPACE\"; sleep 0.05; done ) &\n"
        "sampler=$!\n"
        "\"$CLI\" record --output \"$DISK\" --fps 30 --quality high --duration 60 &\n"
        "recorder=$!\n"
        "while ! ls \"$DISK\"/*.mov >/dev/null 2>&1; do sleep 0.05; done\n"
        "sleep 1\n"
        "fallocate -l $(( $(stat -f -c '%a*%S' \"$DISK\") - 768 * 1024 )) \"$DISK/ballast\"\n"
        "wait $recorder\n"
        "status=$?\n"
        "kill $sampler\n"
        "rm -f \"$DISK/ballast\"\n"
        "cp -a \"$DISK\"/. \"$KEPT\"/\n"
        "exit $status\n";
    std::vector<std::string> argv = prefix;
    argv.insert(argv.end(), {"sh", "-c", script});
    ChildProcess::Options options;
    options.environment = {
        {"DISK", disk}, {"KEPT", kept}, {"SPACE", space}, {"CLI", TAVELQUISTON_CLI_PATH}};
    const std::string out = (outside.path() + "/out.txt").toStdString();
    const std::string err = (outside.path() + "/err.txt").toStdString();
    options.stdoutPath = out;
    options.stderrPath = err;
    ChildProcess recording(argv, options);
    ASSERT_TRUE(waitUntil(
        [&] {
            return readText(out).find("Successfully appended video frame #1") != std::string::npos;
        },
        20s))
        << readText(err);
    const double firstFrame = wallClockNow();
    const std::optional<int> status = recording.waitForExit(60s);
    ASSERT_TRUE(status.has_value()) << "the recording did not end on the full disk";
    const double exited = wallClockNow() - firstFrame;
    // The command reports the failure and prints what was kept.
    EXPECT_EQ(*status, 1) << readText(err);
    const std::string errors = readText(err);
    EXPECT_EQ(occurrences(errors, "Recording Failed"), 1u) << errors;

    const std::vector<SpaceSample> samples = readSamples(space);
    ASSERT_FALSE(samples.empty());
    // The disk is full between the moment it is within a fragment of full and the moment the
    // writer, failing, gives back the room its marker held.
    std::optional<double> nearlyFull, givenBack;
    for (const SpaceSample& sample : samples) {
        const double at = sample.time - firstFrame;
        if (!nearlyFull && sample.freeBytes < 128 * 1024 && at > -1)
            nearlyFull = at;
        else if (nearlyFull && !givenBack && sample.freeBytes > 1024 * 1024)
            givenBack = at;
    }
    ASSERT_TRUE(nearlyFull.has_value()) << "the disk never filled";
    ASSERT_GT(*nearlyFull, 1.0) << "the disk filled too early to tell anything";

    // Only the kept movie and its metadata are left.
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(kept))
        left.push_back(entry.path().filename().string());
    std::sort(left.begin(), left.end());
    const std::string log = readText(out);
    ASSERT_EQ(left.size(), 2u) << ::testing::PrintToString(left) << "\n"
                               << errors
                               << log.substr(log.size() - std::min<size_t>(log.size(), 3000));
    const std::filesystem::path movie = std::filesystem::path(kept) / left[1];
    EXPECT_EQ(left[0], "." + movie.stem().string() + ".metadata.json");
    EXPECT_NE(movie.filename().string().find(" (Recovered).mov"), std::string::npos);
    // The command printed its path (on the disk), as the alert says where it is.
    const std::vector<std::string> printed = linesOf(readText(out));
    bool named = false;
    for (const std::string& line : printed)
        named = named || line == disk + "/" + movie.filename().string();
    EXPECT_TRUE(named) << "the kept movie's path was not printed";
    EXPECT_NE(errors.find(movie.filename().string()), std::string::npos) << errors;

    const auto video = probeVideo(movie);
    ASSERT_TRUE(video) << movie;
    EXPECT_GE(video->endSeconds, *nearlyFull - 2.0);
    // The writer gives back the room it held when it fails; on a busy machine the command may be
    // gone before a sample sees it, and its end bounds the movie as well.
    EXPECT_LE(video->endSeconds, givenBack.value_or(exited) + 0.1);
    EXPECT_TRUE(decodeFirstPicture(movie));
    const RecordingMetadata metadata =
        readMetadataFile(QString::fromStdString((std::filesystem::path(kept) / left[0]).string()));
    EXPECT_NEAR(metadata.duration, video->endSeconds, 0.05);
}
