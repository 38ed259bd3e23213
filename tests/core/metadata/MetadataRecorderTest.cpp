#include "core/metadata/MetadataRecorder.h"

#include "core/metadata/MetadataFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A recorder on a clock of the test's own, with its spill file in a private folder.
class MetadataRecorderTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(folder.isValid());
        recorder.temporaryDirectory = folder.path();
        recorder.timeProvider = [this]() { return now; };
    }

    void start() { recorder.startRecording(MetadataRecorder::Clock::now()); }

    // `count` samples 1/30 s apart, each moved by 0.01 so none is a duplicate.
    void record(int count) {
        for (int i = 0; i < count; ++i) {
            now = sampleIndex / 30.0;
            recorder.recordCursorPosition({(sampleIndex % 100) * 0.01, 0.5});
            ++sampleIndex;
        }
    }

    QStringList spillFiles() const {
        return QDir(folder.path())
            .entryList({QStringLiteral("cursor_positions_*.bin")}, QDir::Files | QDir::Hidden);
    }

    QTemporaryDir folder;
    MetadataRecorder recorder{Size{1920, 1080}, 60};
    std::optional<double> now = 0.0;
    int sampleIndex = 0;
};

} // namespace

// Before the start, and while the time line has no value, every call is dropped.
TEST_F(MetadataRecorderTest, NothingIsRecordedOutsideARecording) {
    const auto recordOneOfEach = [&] {
        recorder.recordCursorPosition({0.5, 0.5});
        recorder.recordCursorClick({0.5, 0.5}, ClickType::leftClick);
        recorder.recordZoomEvent({0.5, 0.5}, 2, 1);
        recorder.recordCameraPosition(Rect(0, 0, 10, 10));
    };
    recordOneOfEach();
    start();
    now.reset();
    recordOneOfEach();
    recorder.stopRecording(5);
    const RecordingMetadata m = recorder.getCurrentMetadata();
    EXPECT_TRUE(m.cursorPositions.empty());
    EXPECT_TRUE(m.cursorClicks.empty());
    EXPECT_TRUE(m.zoomEvents.empty());
    EXPECT_TRUE(m.cameraPositions.empty());
}

// Duplicates: all three of |dx| < 0.001, |dy| < 0.001 and dt < 0.02 must hold; a time from
// before the last sample is never kept.
TEST_F(MetadataRecorderTest, DropsOnlyTrueDuplicates) {
    start();
    now = 1.0;
    recorder.recordCursorPosition({0.5, 0.5});
    now = 1.019;
    recorder.recordCursorPosition({0.5, 0.5}); // dropped
    EXPECT_EQ(recorder.bufferedCursorPositions(), 1u);
    now = 1.02;
    recorder.recordCursorPosition({0.5, 0.5}); // 0.02 later: kept
    EXPECT_EQ(recorder.bufferedCursorPositions(), 2u);
    recorder.recordCursorPosition({0.501, 0.5}); // moved by 0.001 at the same time: kept
    EXPECT_EQ(recorder.bufferedCursorPositions(), 3u);
    now = 0.5;
    recorder.recordCursorPosition({0.501, 0.5}); // time went backwards: dropped
    recorder.recordCursorPosition({0.9, 0.9});   // also when the pointer moved
    EXPECT_EQ(recorder.bufferedCursorPositions(), 3u);
}

// The order holds across a flush: the last kept sample is on disk, not in the buffer.
TEST_F(MetadataRecorderTest, PositionsStayInTimeOrderAcrossAFlush) {
    recorder.cursorFlushThreshold = 10;
    start();
    record(10);
    ASSERT_EQ(recorder.bufferedCursorPositions(), 0u);
    now = 0.1; // before the last sample, 0.3 s
    recorder.recordCursorPosition({0.25, 0.75});
    EXPECT_EQ(recorder.bufferedCursorPositions(), 0u);
}

// One flush at the threshold: 10,000 records of 24 bytes, owner-only, little-endian doubles.
TEST_F(MetadataRecorderTest, FlushesAtTheThresholdToAPrivateSpillFile) {
    start();
    const std::optional<QString> path = recorder.cursorTempFilePath();
    ASSERT_TRUE(path.has_value());
    EXPECT_TRUE(QFileInfo(*path).fileName().startsWith(QStringLiteral("cursor_positions_")));
    EXPECT_EQ(QFileInfo(*path).permissions() & ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
              QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    record(10000);
    EXPECT_EQ(recorder.cursorPositionsOnDisk(), 10000u);
    EXPECT_EQ(recorder.bufferedCursorPositions(), 0u);
    EXPECT_EQ(QFileInfo(*path).size(), 240000);

    // Record 1 is sample 1: t = 1/30, x = 0.01, y = 0.5.
    QFile file(*path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    auto at = [&](qsizetype offset) {
        unsigned char raw[8];
        std::memcpy(raw, bytes.constData() + offset, 8);
        std::uint64_t bits = 0;
        for (int i = 7; i >= 0; --i)
            bits = bits << 8 | raw[i];
        double value;
        std::memcpy(&value, &bits, 8);
        return value;
    };
    EXPECT_EQ(at(24), 1 / 30.0);
    EXPECT_EQ(at(32), 0.01);
    EXPECT_EQ(at(40), 0.5);
}

// 25,000 samples: two flushes and 5,000 in the buffer; all come back in order, and the spill
// file is gone.
TEST_F(MetadataRecorderTest, StopReadsEverythingBackInOrder) {
    start();
    const QString path = *recorder.cursorTempFilePath();
    record(25000);
    EXPECT_EQ(recorder.cursorPositionsOnDisk(), 20000u);
    EXPECT_EQ(recorder.bufferedCursorPositions(), 5000u);
    recorder.stopRecording(25000 / 30.0);
    const RecordingMetadata m = recorder.getCurrentMetadata();
    ASSERT_EQ(m.cursorPositions.size(), 25000u);
    for (std::size_t i = 0; i < m.cursorPositions.size(); i += 997)
        EXPECT_EQ(m.cursorPositions[i].timestamp, double(i) / 30.0);
    EXPECT_EQ(m.cursorPositions.back().timestamp, 24999 / 30.0);
    EXPECT_EQ(m.cursorPositions.back().position, (Point{0.99, 0.5}));
    EXPECT_NE(m.cursorPositions[0].id, m.cursorPositions[1].id);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_FALSE(recorder.cursorTempFilePath().has_value());
}

// The read-back goes by the file's size; a partial record at the end is ignored.
TEST_F(MetadataRecorderTest, IgnoresAPartialLastRecord) {
    start();
    record(10000);
    QFile file(*recorder.cursorTempFilePath());
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write(QByteArray(10, '\x7f'));
    file.close();
    recorder.stopRecording(400);
    EXPECT_EQ(recorder.getCurrentMetadata().cursorPositions.size(), 10000u);
}

// Without a spill file every sample stays in memory and none is lost.
TEST_F(MetadataRecorderTest, KeepsSamplesInMemoryWithoutASpillFile) {
    recorder.temporaryDirectory = folder.filePath(QStringLiteral("missing"));
    start();
    EXPECT_FALSE(recorder.cursorTempFilePath().has_value());
    record(12000);
    EXPECT_EQ(recorder.cursorPositionsOnDisk(), 0u);
    EXPECT_EQ(recorder.bufferedCursorPositions(), 12000u);
    recorder.stopRecording(400);
    EXPECT_EQ(recorder.getCurrentMetadata().cursorPositions.size(), 12000u);
}

TEST_F(MetadataRecorderTest, SpillFileIsRemovedWhenTheRecorderGoes) {
    QString path;
    {
        MetadataRecorder other{Size{100, 100}, 30};
        other.temporaryDirectory = folder.path();
        other.startRecording(MetadataRecorder::Clock::now());
        path = *other.cursorTempFilePath();
        EXPECT_TRUE(QFileInfo::exists(path));
    }
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(spillFiles().isEmpty());
}

// A zoom event also yields the editor's keyframe: mirrored centre, eases of its duration.
TEST_F(MetadataRecorderTest, RecordsEventsClicksAndCameraPositionsAtTheirTimes) {
    start();
    now = 2.5;
    recorder.recordZoomEvent({0.25, 0.75}, 2.0, 0.6, EasingFunction::easeIn);
    now = 3.0;
    recorder.recordCursorClick({0.1, 0.2}, ClickType::doubleClick);
    recorder.recordCursorClick({0.1, 0.2}, ClickType::doubleClick); // clicks are not de-duplicated
    recorder.recordCameraPosition(Rect(10, 20, 300, 200));
    recorder.stopRecording(4);
    const RecordingMetadata m = recorder.getCurrentMetadata();
    ASSERT_EQ(m.zoomEvents.size(), 1u);
    EXPECT_EQ(m.zoomEvents[0].timestamp, 2.5);
    EXPECT_EQ(m.zoomEvents[0].position, (Point{0.25, 0.75}));
    EXPECT_EQ(m.zoomEvents[0].easing, EasingFunction::easeIn);
    ASSERT_EQ(m.zoomKeyframes.size(), 1u);
    EXPECT_EQ(m.zoomKeyframes[0].center, (Point{0.25, 0.25}));
    EXPECT_EQ(m.zoomKeyframes[0].easeIn, 0.6);
    EXPECT_EQ(m.zoomKeyframes[0].easeOut, 0.6);
    EXPECT_EQ(m.cursorClicks.size(), 2u);
    EXPECT_EQ(m.cursorClicks[0].clickType, ClickType::doubleClick);
    ASSERT_EQ(m.cameraPositions.size(), 1u);
    EXPECT_EQ(m.cameraPositions[0].timestamp, 3.0);
    EXPECT_EQ(m.duration, 4);
}

// Without a time line the recorder measures wall-clock time from the start it was given.
TEST_F(MetadataRecorderTest, FallsBackOnTheStartDate) {
    recorder.timeProvider = nullptr;
    recorder.startRecording(MetadataRecorder::Clock::now() - std::chrono::seconds(10));
    recorder.recordCursorClick({0.5, 0.5}, ClickType::leftClick);
    const double t = recorder.getCurrentMetadata().cursorClicks.at(0).timestamp;
    EXPECT_GE(t, 10.0);
    EXPECT_LT(t, 20.0);
}

// A new recording starts from scratch but keeps the background.
TEST_F(MetadataRecorderTest, RestartingClearsTheEarlierRun) {
    BackgroundSettings background{.type = StudioBackgroundType::solidColor,
                                  .color = CodableColor{1, 0, 0, 1}};
    recorder.setBackgroundSettings(background);
    start();
    record(5);
    recorder.recordCursorClick({0.5, 0.5}, ClickType::leftClick);
    recorder.stopRecording(1);
    start();
    recorder.stopRecording(2);
    const RecordingMetadata m = recorder.getCurrentMetadata();
    EXPECT_TRUE(m.cursorPositions.empty());
    EXPECT_TRUE(m.cursorClicks.empty());
    EXPECT_EQ(m.backgroundSettings, background);
    EXPECT_EQ(m.duration, 2);
}

TEST_F(MetadataRecorderTest, SavesOnlyAfterStoppingAndLoadsWhatItSaved) {
    const QString path = folder.filePath(QStringLiteral(".metadata.json"));
    start();
    record(3);
    EXPECT_THROW(recorder.saveMetadata(path), MetadataRecorderError);
    EXPECT_FALSE(QFileInfo::exists(path));

    recorder.stopRecording(1);
    recorder.saveMetadata(path);
    EXPECT_EQ(MetadataRecorder::loadMetadata(path), recorder.getCurrentMetadata());
    EXPECT_THROW(MetadataRecorder::loadMetadata(folder.filePath(QStringLiteral("none.json"))),
                 MetadataFileError);
}

// A save that fails half-way (here the file size limit stops the write after a few kilobytes)
// reports the failure and leaves the document saved before it whole; nothing else stays behind.
// A small document fails only when its buffered bytes are flushed at the end, as on a full disk.
TEST_F(MetadataRecorderTest, AFailedSaveLeavesThePreviousDocumentIntact) {
    const QString path = folder.filePath(QStringLiteral(".movie.metadata.json"));
    start();
    record(3);
    recorder.stopRecording(1);
    recorder.saveMetadata(path);
    QFile saved(path);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    const QByteArray before = saved.readAll();
    saved.close();

    struct Case {
        int samples;
        rlim_t limit;
    };
    // About 300 kB against 4 kB; a few hundred bytes against 64.
    for (const Case& failing : {Case{5000, 4096}, Case{2, 64}}) {
        SCOPED_TRACE(failing.samples);
        start();
        record(failing.samples);
        recorder.stopRecording(200);
        const pid_t child = fork();
        if (child == 0) {
            // The limit makes write() fail with EFBIG instead of killing the process.
            signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{failing.limit, failing.limit};
            setrlimit(RLIMIT_FSIZE, &limit);
            try {
                recorder.saveMetadata(path);
            } catch (const MetadataFileError&) {
                _exit(0);
            }
            _exit(1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "the failure must be reported";
        ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
        EXPECT_EQ(saved.readAll(), before);
        saved.close();
        EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden),
                  QStringList{QStringLiteral(".movie.metadata.json")});
    }
}
