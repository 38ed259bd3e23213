#include "media/RecordingSalvage.h"

#include "MovieProbe.h"
#include "SyntheticMedia.h"
#include "core/metadata/MetadataFile.h"
#include "media/MediaWriter.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

namespace {
constexpr int fps = 30;

WriterConfiguration movie(const std::filesystem::path& path) {
    WriterConfiguration configuration;
    configuration.outputURL = path;
    configuration.outputFormat = OutputFormat::mov;
    WriterConfiguration::VideoSettings video;
    video.width = 160;
    video.height = 120;
    video.frameRate = fps;
    configuration.videoSettings = video;
    return configuration;
}

// Three seconds at 30 frames a second handed to a writer that is then abandoned, as the program
// does with a recording it cannot finish; the last fragment never reaches the disk.
void writeAndAbandon(const std::filesystem::path& path) {
    MediaWriter writer;
    writer.configure(movie(path));
    writer.startWriting();
    writer.startSession(MediaTime::zero());
    for (int i = 0; i < 3 * fps; ++i) {
        const MediaTime pts = MediaTime::make(i, fps);
        while (!writer.appendVideoBuffer(movingPicture(160, 120, i, pts, MediaTime::make(1, fps))))
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // let the worker catch up
    writer.abandon();
}

// Writes frames and sound in real time in a child process and kills it after `seconds` of
// media; returns the media time of the last frame the child reported as accepted.
double recordAndKill(const std::filesystem::path& path, double seconds) {
    int progress[2];
    if (pipe(progress) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        close(progress[0]);
        MediaWriter writer;
        writer.configure(movie(path));
        writer.startWriting();
        writer.startSession(MediaTime::zero());
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0;; ++i) {
            std::this_thread::sleep_until(begin + std::chrono::microseconds(i * 1000000 / fps));
            const MediaTime pts = MediaTime::make(i, fps);
            const bool video =
                writer.appendVideoBuffer(movingPicture(160, 120, i, pts, MediaTime::make(1, fps)));
            const bool audio = writer.appendAudioBuffer(tone(1600, i * 1600, pts), 0);
            if (video && audio && write(progress[1], &i, sizeof i) < 0)
                _exit(1);
        }
    }
    close(progress[1]);
    int last = -1;
    int index = 0;
    while (last < seconds * fps && read(progress[0], &index, sizeof index) == sizeof index)
        last = index;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(progress[0]);
    return double(last) / fps;
}
} // namespace

// A recording whose process was killed: salvage finds it, writes a complete movie that plays to
// within two seconds of the kill with its metadata cut to the same length (cursor samples from
// the spill file the recording left), and leaves nothing more to do.
TEST(RecordingSalvage, AKilledRecordingIsRecoveredWithItsMetadata) {
    ScratchFolder folder;
    ScratchFolder spill;
    const std::filesystem::path path = folder.file("Recording at noon.mov");
    const double killedAt = recordAndKill(path, 3.0);
    ASSERT_GT(killedAt, 2.9);
    // Cursor samples every 0.1 s for 6 s, more than the movie kept.
    {
        std::ofstream samples(spill.file("cursor_positions_0A1B.bin"), std::ios::binary);
        for (int i = 0; i < 60; ++i) {
            const double record[3] = {i / 10.0, 0.25, 0.75};
            samples.write(reinterpret_cast<const char*>(record), sizeof record);
        }
    }

    ASSERT_EQ(findUnfinishedRecordings(folder.path()), std::vector{path});
    SalvageOptions options;
    options.spillFolder = spill.path();
    const SalvagedRecording salvaged = salvageRecording(path, options);

    EXPECT_EQ(salvaged.movie, folder.file("Recording at noon (Recovered).mov"));
    auto file = probeMovie(salvaged.movie);
    ASSERT_TRUE(file);
    const ProbedStream* video = file->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_TRUE(video && file->first(AVMEDIA_TYPE_AUDIO));
    EXPECT_GE(video->endSeconds, killedAt - 2.0);
    EXPECT_NEAR(salvaged.duration, video->endSeconds, 1e-3);
    EXPECT_GT(file->durationSeconds, 0.0) << "a complete movie knows its length";

    const RecordingMetadata metadata = readMetadataFile(QString::fromStdString(
        folder.file(".Recording at noon (Recovered).metadata.json").string()));
    EXPECT_EQ(metadata.duration, salvaged.duration);
    EXPECT_EQ(metadata.resolution, (Size{160, 120}));
    EXPECT_EQ(metadata.frameRate, fps);
    ASSERT_FALSE(metadata.cursorPositions.empty());
    EXPECT_LE(metadata.cursorPositions.back().timestamp, salvaged.duration);
    EXPECT_GT(metadata.cursorPositions.back().timestamp, salvaged.duration - 0.11);

    EXPECT_FALSE(std::filesystem::exists(path)) << "everything of it is in the recovered movie";
    EXPECT_TRUE(findUnfinishedRecordings(folder.path()).empty());
    EXPECT_TRUE(std::filesystem::is_empty(spill.path())) << "the cursor trail is in the metadata";
}

// A movie that is still being written is nobody's to salvage; once finished it has no marker,
// and neither has a cancelled one.
TEST(RecordingSalvage, OnlyAbandonedMoviesAreFound) {
    ScratchFolder folder;
    MediaWriter writer;
    writer.configure(movie(folder.file("live.mov")));
    writer.startWriting();
    writer.startSession(MediaTime::zero());
    EXPECT_TRUE(findUnfinishedRecordings(folder.path()).empty());
    writer.finishWriting();
    MediaWriter cancelled;
    cancelled.configure(movie(folder.file("cancelled.mov")));
    cancelled.startWriting();
    cancelled.cancel();
    EXPECT_TRUE(findUnfinishedRecordings(folder.path()).empty());
    // Only the finished movie is left.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()),
                            std::filesystem::directory_iterator()),
              1);
}

// The program's own path for a recording that cannot be finished: the writer is abandoned, and
// the salvage keeps what reached the disk with the recording's own metadata, cut to its length.
TEST(RecordingSalvage, AnAbandonedWriterIsSalvagedWithTheGivenMetadata) {
    ScratchFolder folder;
    const std::filesystem::path path = folder.file("Recording at one.mov");
    writeAndAbandon(path);
    ASSERT_EQ(findUnfinishedRecordings(folder.path()), std::vector{path});

    RecordingMetadata metadata;
    metadata.duration = 3;
    metadata.cursorClicks = {CursorClick{.timestamp = 0.5}, CursorClick{.timestamp = 2.9}};
    SalvageOptions options;
    options.metadata = metadata;
    const SalvagedRecording salvaged = salvageRecording(path, options);
    // Key frames every second: the fragments up to the one begun at 2 s are complete.
    EXPECT_NEAR(salvaged.duration, 2.0, 1e-3);
    auto file = probeMovie(salvaged.movie);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), size_t(2 * fps));
    const RecordingMetadata cut =
        readMetadataFile(QString::fromStdString(salvaged.metadata.string()));
    EXPECT_EQ(cut.duration, salvaged.duration);
    ASSERT_EQ(cut.cursorClicks.size(), 1u);
    EXPECT_EQ(cut.cursorClicks.front().timestamp, 0.5);
    EXPECT_TRUE(findUnfinishedRecordings(folder.path()).empty());
}

// With no room on the disk for a copy (a full disk is why many a recording fails), the movie is
// closed where it is: cut after its last complete fragment and renamed, and it plays.
TEST(RecordingSalvage, WithoutRoomForACopyTheMovieIsClosedWhereItIs) {
    ScratchFolder folder;
    const std::filesystem::path path = folder.file("Recording at two.mov");
    writeAndAbandon(path);
    // Half a fragment's worth of junk at the end, as a crash in the middle of one leaves.
    std::ofstream(path, std::ios::app) << std::string(5000, 'x');
    const auto before = std::filesystem::file_size(path);

    const pid_t child = fork();
    if (child == 0) {
        // Writes beyond 8 kB fail with EFBIG, as they would with ENOSPC on a full disk.
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{8192, 8192};
        setrlimit(RLIMIT_FSIZE, &limit);
        try {
            const SalvagedRecording salvaged = salvageRecording(path);
            _exit(salvaged.movie == std::filesystem::path(path).replace_filename(
                                        "Recording at two (Recovered).mov")
                      ? 0
                      : 2);
        } catch (...) {
            _exit(1);
        }
    }
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    const std::filesystem::path recovered = folder.file("Recording at two (Recovered).mov");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_LE(std::filesystem::file_size(recovered), before - 5000) << "the cut-off end is gone";
    auto file = probeMovie(recovered);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), size_t(2 * fps));
    EXPECT_TRUE(decodeFirstPicture(recovered));
    const RecordingMetadata metadata = readMetadataFile(QString::fromStdString(
        folder.file(".Recording at two (Recovered).metadata.json").string()));
    EXPECT_NEAR(metadata.duration, 2.0, 1e-3);
    EXPECT_TRUE(findUnfinishedRecordings(folder.path()).empty());
}
