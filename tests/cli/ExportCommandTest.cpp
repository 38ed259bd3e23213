#include "cli/ExportCommand.h"

#include "core/metadata/MetadataFile.h"
#include "core/metadata/MetadataJson.h"
#include "media/export/VideoTrackReader.h"

#include "CommandOutcome.h"
#include "SyntheticRecording.h"
#include "media/MovieProbe.h"
#include "support/ChildProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

CommandOutcome run(const QStringList& arguments) {
    return runCommandEntry(runExport, arguments);
}

std::string lastLine(const std::string& text) {
    std::string trimmed = text;
    while (!trimmed.empty() && trimmed.back() == '\n')
        trimmed.pop_back();
    const size_t newline = trimmed.rfind('\n');
    return newline == std::string::npos ? trimmed : trimmed.substr(newline + 1);
}

class ExportCommandTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(folder.isValid()); }
    std::string file(const char* name) const {
        return QDir(folder.path()).filePath(name).toStdString();
    }
    QString qfile(const char* name) const { return QDir(folder.path()).filePath(name); }

    QTemporaryDir folder;
};

// The styled export a user shares: the canvas keeps the source size, every output frame is
// there at 60 frames/s, the sound lasts as long as the picture, and the background shows in
// the padding while the screen shows inside it.
TEST_F(ExportCommandTest, StyledExportKeepsLengthSoundAndGeometry) {
    const synthetic::Layout layout{320, 240, 20, 3.0, true};
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    const CommandOutcome outcome = run({qfile("screen.mp4"), "--background", "color:#00FF00",
                                        "--padding", "90", "--output", qfile("styled.mp4")});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(lastLine(outcome.out), file("styled.mp4"));

    const std::optional<ProbedFile> probed = probeMovie(file("styled.mp4"));
    ASSERT_TRUE(probed);
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    const ProbedStream* audio = probed->first(AVMEDIA_TYPE_AUDIO);
    ASSERT_TRUE(video && audio);
    EXPECT_EQ(video->width, 320);
    EXPECT_EQ(video->height, 240);
    EXPECT_EQ(video->packetTimes.size(), 180u);
    EXPECT_NEAR(video->endSeconds, 3.0, 1.0 / 60);
    EXPECT_NEAR(audio->endSeconds, 3.0, 0.05);
    // No cut touches the sound, so it is the source's own packets.
    const std::optional<ProbedFile> source = probeMovie(file("screen.mp4"));
    ASSERT_TRUE(source && source->first(AVMEDIA_TYPE_AUDIO));
    EXPECT_EQ(audio->packetTimes, source->first(AVMEDIA_TYPE_AUDIO)->packetTimes);

    std::string error;
    auto reader = VideoTrackReader::open(file("styled.mp4"), error);
    ASSERT_TRUE(reader) << error;
    const VideoFrame frame = reader->frameAt(MediaTime::make(3, 2));
    ASSERT_FALSE(frame.isNull());
    auto pixel = [&](int x, int y) {
        return *reinterpret_cast<const uint32_t*>(
            frame.bytes() + size_t(y) * size_t(frame.bytesPerRow()) + size_t(x) * 4);
    };
    auto near = [](uint32_t a, uint32_t b) {
        for (int shift = 0; shift < 24; shift += 8) {
            if (std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)) > 24)
                return false;
        }
        return true;
    };
    // Padding of 90 on a 1080-high canvas is 20 pixels here: the corner is background.
    EXPECT_TRUE(near(pixel(4, 4), 0xff00ff00u)) << std::hex << pixel(4, 4);
    EXPECT_TRUE(near(pixel(315, 235), 0xff00ff00u)) << std::hex << pixel(315, 235);
    // The lower half of the screen at 1.5 s has the colour of second 1.
    EXPECT_TRUE(near(pixel(160, 190), synthetic::palette[1])) << std::hex << pixel(160, 190);
}

// Three kept ranges join end to end: the output lasts their sum, the first frame after each
// join is the first frame of the next range, and the sound is cut the same way.
TEST_F(ExportCommandTest, CutsJoinOnTheRightSourceFramesWithTheirSound) {
    synthetic::Layout layout{320, 240, 20, 6.0, true};
    layout.louderEachSecond = true;
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    const CommandOutcome outcome =
        run({qfile("screen.mp4"), "--cut", "3-4", "--cut", "0.5-1.5", "--cut", "4.5-5.5", "--fps",
             "20", "--zoom", "none", "--output", qfile("cut.mp4")});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const std::optional<ProbedFile> probed = probeMovie(file("cut.mp4"));
    ASSERT_TRUE(probed);
    ASSERT_TRUE(probed->first(AVMEDIA_TYPE_AUDIO));
    EXPECT_NEAR(probed->first(AVMEDIA_TYPE_VIDEO)->endSeconds, 3.0, 1.0 / 20);
    EXPECT_NEAR(probed->first(AVMEDIA_TYPE_AUDIO)->endSeconds, 3.0, 0.05);
    EXPECT_EQ(probed->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), 60u);

    std::string error;
    auto reader = VideoTrackReader::open(file("cut.mp4"), error);
    ASSERT_TRUE(reader) << error;
    // Output frame -> source frame: [0,20) from 10, [20,40) from 60, [40,60) from 90.
    for (int output : {0, 19, 20, 21, 39, 40, 59}) {
        const int expected = output < 20 ? 10 + output : output < 40 ? 40 + output : 50 + output;
        const VideoFrame frame = reader->frameAt(MediaTime::make(output, 20));
        ASSERT_FALSE(frame.isNull());
        EXPECT_EQ(synthetic::frameNumber(frame, layout), expected) << "output frame " << output;
    }
    // The sound is as loud as its source second, 0.05 (second + 1), on either side of each join
    // (source 0.5-1.5, 3-4, 4.5-5.5 at output 0, 1, 2).
    const std::pair<double, double> loudness[] = {
        {0.2, 0.05}, {0.4, 0.05}, {0.6, 0.10},  {0.9, 0.10},  {1.1, 0.20},
        {1.9, 0.20}, {2.1, 0.25}, {2.45, 0.25}, {2.55, 0.30}, {2.9, 0.30}};
    for (const auto& [at, expected] : loudness)
        EXPECT_NEAR(synthetic::amplitude(file("cut.mp4"), at - 0.04, at + 0.04), expected, 0.02)
            << "at " << at << " s";
}

// One file per kept range, named after the source, each copied without re-encoding.
TEST_F(ExportCommandTest, PartsGiveOneFilePerRangeBesideTheSource) {
    const synthetic::Layout layout{320, 240, 20, 6.0, true};
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    const CommandOutcome outcome = run(
        {qfile("screen.mp4"), "--cut", "0.5-1.5", "--cut", "3-4", "--cut", "4.5-5.5", "--parts"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    for (int part = 1; part <= 3; ++part) {
        const std::string path = file(("screen - Part " + std::to_string(part) + ".mp4").c_str());
        EXPECT_NE(outcome.out.find(path), std::string::npos) << outcome.out;
        const std::optional<ProbedFile> probed = probeMovie(path);
        ASSERT_TRUE(probed) << path;
        std::string error;
        auto reader = VideoTrackReader::open(path, error);
        ASSERT_TRUE(reader) << error;
        EXPECT_NEAR(reader->duration().seconds(), 1.0, 0.06) << path;
        EXPECT_TRUE(probed->first(AVMEDIA_TYPE_AUDIO)) << path;
    }
}

// An unstyled trim copies packets: the pictures are the source's own, from the key frame before
// the start, and the file's edit list starts playback exactly at the start.
TEST_F(ExportCommandTest, TrimCopiesTheRangeUnderTheDescribedName) {
    const synthetic::Layout layout{320, 240, 20, 4.0, true};
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    const CommandOutcome outcome = run({qfile("screen.mp4"), "--trim", "1.5-3"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const std::string path = lastLine(outcome.out);
    EXPECT_NE(path.find("screen (Cropped in "), std::string::npos) << path;
    EXPECT_EQ(path.substr(path.size() - 4), ".mp4");
    std::string error;
    auto reader = VideoTrackReader::open(path, error);
    ASSERT_TRUE(reader) << error;
    EXPECT_NEAR(reader->duration().seconds(), 1.5, 0.06);
    EXPECT_EQ(synthetic::frameNumber(reader->frameAt(MediaTime::zero()), layout), 30);
    EXPECT_EQ(synthetic::frameNumber(reader->frameAt(MediaTime::make(1, 2)), layout), 40);
}

// A recording package: the camera movie inside it is drawn where its settings put it, and the
// export goes beside the package, named after it.
TEST_F(ExportCommandTest, PackageExportsWithItsCameraInPlace) {
    ASSERT_TRUE(QDir(folder.path()).mkdir("Recording-1"));
    ASSERT_TRUE(
        synthetic::writeRecording(file("Recording-1/.screen.mov"), {320, 240, 20, 2.0, true}));
    synthetic::Layout camera{160, 120, 20, 2.0, false};
    camera.solidColour = 0xff1030e0;
    ASSERT_TRUE(synthetic::writeRecording(file("Recording-1/.camera.mov"), camera));
    const CommandOutcome outcome =
        run({qfile("Recording-1"), "--background", "color:#00FF00", "--camera-center", "0.5,0.5",
             "--camera-width", "0.3", "--camera-shape", "rectangle"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const std::string path = lastLine(outcome.out);
    EXPECT_EQ(path.rfind(file("Recording-1 (Edited "), 0), 0u) << path;
    std::string error;
    auto reader = VideoTrackReader::open(path, error);
    ASSERT_TRUE(reader) << error;
    const VideoFrame frame = reader->frameAt(MediaTime::make(1, 1));
    auto pixel = [&](int x, int y) {
        return *reinterpret_cast<const uint32_t*>(
            frame.bytes() + size_t(y) * size_t(frame.bytesPerRow()) + size_t(x) * 4);
    };
    auto blue = [](uint32_t p) { return (p & 0xff) > 180 && ((p >> 16) & 0xff) < 60; };
    EXPECT_TRUE(blue(pixel(160, 120))) << std::hex << pixel(160, 120);
    EXPECT_FALSE(blue(pixel(60, 190))) << std::hex << pixel(60, 190);
}

// A GIF for sharing: one palette, 15 frames a second, no sound.
TEST_F(ExportCommandTest, GifIsAShortPaletteClip) {
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), {320, 240, 20, 2.0, true}));
    const CommandOutcome outcome =
        run({qfile("screen.mp4"), "--gif", "--background", "gradient:ocean"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const std::string path = lastLine(outcome.out);
    EXPECT_EQ(path.substr(path.size() - 4), ".gif");
    const std::optional<ProbedFile> probed = probeMovie(path);
    ASSERT_TRUE(probed);
    ASSERT_TRUE(probed->first(AVMEDIA_TYPE_VIDEO));
    EXPECT_EQ(probed->first(AVMEDIA_TYPE_VIDEO)->codec, "gif");
    EXPECT_EQ(probed->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), 30u);
    EXPECT_FALSE(probed->first(AVMEDIA_TYPE_AUDIO));
}

uint32_t pixelOf(const VideoFrame& frame, int x, int y) {
    return *reinterpret_cast<const uint32_t*>(
        frame.bytes() + size_t(y) * size_t(frame.bytesPerRow()) + size_t(x) * 4);
}
bool reddish(uint32_t p) {
    return ((p >> 16) & 0xff) > 150 && (p & 0xff) < 90;
}
bool bluish(uint32_t p) {
    return (p & 0xff) > 150 && ((p >> 16) & 0xff) < 90;
}

// A zoom segment from a file magnifies by its level at its middle and leaves the picture alone
// well before it. Red fills the left 35 % of the source, blue the rest; at level 2 about the
// centre, x = 80 shows source x = 120 (blue) and x = 32 shows x = 96 (red).
TEST_F(ExportCommandTest, ZoomSegmentMagnifiesByItsLevelAtItsMiddle) {
    synthetic::Layout layout{320, 240, 20, 4.5, false};
    layout.splitAt = 0.35;
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    ZoomSegment segment;
    segment.id = QUuid::createUuid();
    segment.startTime = 1.5;
    segment.endTime = 3.0;
    segment.zoomLevel = 2.0;
    segment.focusPoint = Point{0.5, 0.5};
    {
        std::ofstream zoom(file("zoom.json"));
        RecordingMetadata document;
        document.zoomSegments = {segment};
        zoom << encodeMetadata(document);
    }
    const CommandOutcome outcome = run({qfile("screen.mp4"), "--zoom", qfile("zoom.json"), "--fps",
                                        "20", "--output", qfile("zoom.mp4")});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    std::string error;
    auto reader = VideoTrackReader::open(file("zoom.mp4"), error);
    ASSERT_TRUE(reader) << error;
    const VideoFrame before = reader->frameAt(MediaTime::make(3, 10));
    EXPECT_TRUE(reddish(pixelOf(before, 80, 120))) << std::hex << pixelOf(before, 80, 120);
    EXPECT_TRUE(bluish(pixelOf(before, 160, 120)));
    const VideoFrame middle = reader->frameAt(MediaTime::make(9, 4));
    EXPECT_TRUE(bluish(pixelOf(middle, 80, 120))) << std::hex << pixelOf(middle, 80, 120);
    EXPECT_TRUE(reddish(pixelOf(middle, 32, 120))) << std::hex << pixelOf(middle, 32, 120);
}

// The drawn cursor is where the metadata puts it (normalised, from the top left), and nowhere
// when it is turned off.
TEST_F(ExportCommandTest, CursorIsDrawnWhereTheMetadataPutsIt) {
    synthetic::Layout layout{320, 240, 20, 1.0, false};
    layout.solidColour = 0xff202020;
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    RecordingMetadata metadata;
    metadata.duration = 1.0;
    metadata.resolution = {320, 240};
    for (int i = 0; i <= 10; ++i)
        metadata.cursorPositions.push_back({QUuid::createUuid(), i / 10.0, {0.75, 0.25}});
    writeMetadataFile(metadata, qfile(".screen.metadata.json"));
    const auto brightNear = [](const VideoFrame& frame, int cx, int cy) {
        int count = 0;
        for (int y = cy - 2; y < cy + 12; ++y) {
            for (int x = cx - 2; x < cx + 10; ++x)
                count += ((pixelOf(frame, x, y) >> 8) & 0xff) > 150 ? 1 : 0;
        }
        return count;
    };
    for (const bool cursor : {true, false}) {
        const QString output = qfile(cursor ? "cursor.mp4" : "plain.mp4");
        const CommandOutcome outcome =
            run({qfile("screen.mp4"), "--zoom", "none", cursor ? "--cursor" : "--no-cursor",
                 "--fps", "20", "--output", output});
        ASSERT_EQ(outcome.status, 0) << outcome.err;
        std::string error;
        auto reader = VideoTrackReader::open(output.toStdString(), error);
        ASSERT_TRUE(reader) << error;
        const VideoFrame frame = reader->frameAt(MediaTime::make(1, 2));
        EXPECT_EQ(brightNear(frame, 240, 60) > 3, cursor);
        EXPECT_EQ(brightNear(frame, 80, 180), 0);
    }
}

// The timeline's loudness values of a movie: 50 a second (at least 200), the loudest at 1.
TEST_F(ExportCommandTest, WaveformPrintsOneValuePerLine) {
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), {320, 240, 20, 6.0, true}));
    const CommandOutcome outcome = runCommandEntry(runWaveform, {qfile("screen.mp4")});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    std::istringstream lines(outcome.out);
    std::vector<double> values;
    for (std::string line; std::getline(lines, line);)
        values.push_back(std::stod(line));
    ASSERT_EQ(values.size(), 300u);
    EXPECT_DOUBLE_EQ(*std::max_element(values.begin(), values.end()), 1.0);
    EXPECT_GT(*std::min_element(values.begin() + 2, values.end() - 2), 0.5);
    EXPECT_EQ(runCommandEntry(runWaveform, {qfile("missing.mp4")}).status, 2);
}

// Whatever is wrong with the input, the user reads one line naming it and gets status 2.
TEST_F(ExportCommandTest, BadInputIsOneClearLineWithStatusTwo) {
    const synthetic::Layout layout{320, 240, 20, 2.0, false};
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    {
        std::ofstream text(file("notes.mp4"));
        text << "not a movie";
    }
    QFile::copy(qfile("screen.mp4"), qfile("truncated.mp4"));
    QFile::resize(qfile("truncated.mp4"), 600);
    // Its index intact at the front, half of its pictures missing.
    QFile::copy(qfile("screen.mp4"), qfile("half.mp4"));
    QFile::resize(qfile("half.mp4"), QFileInfo(qfile("screen.mp4")).size() / 2);

    const std::vector<std::pair<QStringList, std::string>> cases = {
        {{qfile("missing.mp4")}, "missing.mp4"},
        {{qfile("notes.mp4")}, "notes.mp4"},
        {{qfile("truncated.mp4")}, "truncated.mp4"},
        {{qfile("half.mp4")}, "half.mp4"},
        {{qfile("screen.mp4"), "--cut", "1-9"}, "1-9"},
        {{qfile("screen.mp4"), "--cut", "1.5-1"}, "1.5-1"},
        {{qfile("screen.mp4"), "--codec", "vp9"}, "vp9"},
        {{qfile("screen.mp4"), "--output", qfile("screen.mp4")}, "screen.mp4"},
        {{qfile("screen.mp4"), "--zoom", qfile("nozoom.json")}, "nozoom.json"},
    };
    for (const auto& [arguments, named] : cases) {
        const CommandOutcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2) << named;
        const std::string first = outcome.err.substr(0, outcome.err.find('\n'));
        EXPECT_EQ(first.rfind("❌", 0), 0u) << outcome.err;
        EXPECT_NE(first.find(named), std::string::npos) << first;
    }
}

// Ctrl+C halfway through stops the export and leaves no partial file behind.
TEST_F(ExportCommandTest, InterruptHalfwayLeavesNoOutput) {
    const synthetic::Layout layout{640, 360, 30, 8.0, true};
    ASSERT_TRUE(synthetic::writeRecording(file("screen.mp4"), layout));
    ChildProcess::Options options;
    options.stderrPath = file("progress.txt");
    options.quiet = false;
    ChildProcess cli({TAVELQUISTON_CLI_PATH, "export", file("screen.mp4"), "--background",
                      "gradient:ocean", "--output", file("out.mp4")},
                     options);
    bool halfway = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (!halfway && std::chrono::steady_clock::now() < deadline && cli.isRunning()) {
        std::ifstream progress(file("progress.txt"));
        std::string line;
        while (std::getline(progress, line)) {
            if (line.size() >= 2 && line.back() == '%' && std::atoi(line.c_str()) >= 50)
                halfway = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_TRUE(halfway) << "the export never reported 50 %";
    ::kill(cli.pid(), SIGINT);
    const std::optional<int> status = cli.waitForExit(std::chrono::seconds(20));
    ASSERT_TRUE(status);
    EXPECT_EQ(*status, 130);
    EXPECT_FALSE(std::filesystem::exists(file("out.mp4")));
}

} // namespace
