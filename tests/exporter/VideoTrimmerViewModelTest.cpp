#include "exporter/VideoTrimmerViewModel.h"

#include "core/metadata/MetadataFile.h"
#include "media/export/ExportWriter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>

namespace {

class VideoTrimmerViewModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(folder.isValid());
        ExportEncoding encoding;
        encoding.video.width = 64;
        encoding.video.height = 48;
        encoding.video.expectedSourceFrameRate = 10;
        encoding.tuning.allowHardware = false;
        std::string error;
        auto writer = ExportWriter::create(path("Clip.MOV").toStdString(), encoding, error);
        ASSERT_TRUE(writer) << error;
        for (int k = 0; k < 20; ++k) {
            VideoFrame frame =
                VideoFrame::allocate(64, 48, MediaTime::make(k, 10), MediaTime::make(1, 10));
            std::fill_n(frame.mutableBytes(), size_t(frame.bytesPerRow()) * 48, uint8_t(k * 10));
            ASSERT_TRUE(writer->appendVideo(frame, int64_t(k) * 9000));
        }
        ASSERT_TRUE(writer->finish()) << writer->error().value_or("");
    }
    QString path(const char* name) const { return QDir(folder.path()).filePath(name); }

    // Runs the event loop until the export's completion has come back to this thread.
    VideoTrimmerViewModel::ExportOutcome waitFor(bool& done,
                                                 VideoTrimmerViewModel::ExportOutcome& outcome) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!done && std::chrono::steady_clock::now() < deadline)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        EXPECT_TRUE(done) << "the export did not finish";
        return outcome;
    }

    QTemporaryDir folder;
};

// A single-file recording keeps its metadata hidden beside it; the session finds it and brings
// the zoom to segments. A damaged document leaves the session working without it.
TEST_F(VideoTrimmerViewModelTest, FindsTheHiddenMetadataAndSurvivesADamagedOne) {
    RecordingMetadata metadata;
    metadata.duration = 2.0;
    metadata.resolution = {64, 48};
    metadata.cursorPositions = {{QUuid::createUuid(), 0.5, {0.2, 0.2}}};
    writeMetadataFile(metadata, path(".Clip.metadata.json"));
    VideoTrimmerViewModel session;
    ASSERT_FALSE(session.loadVideo(path("Clip.MOV")));
    ASSERT_TRUE(session.metadata());
    EXPECT_EQ(session.metadata()->cursorPositions.size(), 1u);
    EXPECT_NEAR(session.videoDuration().seconds(), 2.0, 0.01);

    QFile damaged(path(".Clip.metadata.json"));
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly | QIODevice::Truncate));
    damaged.write("{ not json");
    damaged.close();
    VideoTrimmerViewModel second;
    EXPECT_FALSE(second.loadVideo(path("Clip.MOV")));
    EXPECT_FALSE(second.metadata());
    EXPECT_TRUE(second.zoomSegments.empty());
}

// Nothing to export is said before anything starts; the state stays as it was.
TEST_F(VideoTrimmerViewModelTest, AllSegmentsMarkedExportsNothing) {
    VideoTrimmerViewModel session;
    ASSERT_FALSE(session.loadVideo(path("Clip.MOV")));
    session.toggleCutMode();
    ASSERT_TRUE(session.splitSegment(1.0));
    for (const VideoSegment& segment : std::vector(session.segments()))
        session.toggleSegment(segment.id);
    std::optional<QString> error;
    session.exportMergedVideo(
        {}, [&](VideoTrimmerViewModel::ExportOutcome outcome) { error = outcome.error; });
    EXPECT_EQ(error, QStringLiteral("No active segments to export"));
    EXPECT_FALSE(session.isExporting());
    EXPECT_EQ(session.exportProgress(), 0.0);
}

// A trim keeps the source's container under a lower-case extension, reports progress up to 1
// and tells the rest of the program once it is done.
TEST_F(VideoTrimmerViewModelTest, TrimmedExportIsNamedAfterTheSourceAndAnnounced) {
    VideoTrimmerViewModel session;
    ASSERT_FALSE(session.loadVideo(path("Clip.MOV")));
    QString announced;
    QObject::connect(&session, &VideoTrimmerViewModel::videoTrimmerExportSuccess,
                     [&](const QString& url) { announced = url; });
    bool done = false;
    VideoTrimmerViewModel::ExportOutcome outcome;
    session.exportTrimmedVideo({MediaTime::make(5, 10), MediaTime::make(10, 10)},
                               [&](VideoTrimmerViewModel::ExportOutcome result) {
                                   outcome = std::move(result);
                                   done = true;
                               });
    EXPECT_TRUE(session.isExporting());
    waitFor(done, outcome);
    ASSERT_FALSE(outcome.error) << outcome.error->toStdString();
    ASSERT_EQ(outcome.urls.size(), 1u);
    EXPECT_TRUE(outcome.urls[0].startsWith(path("Clip (Cropped in ")));
    EXPECT_TRUE(outcome.urls[0].endsWith(QStringLiteral(").mov")));
    EXPECT_TRUE(QFile::exists(outcome.urls[0]));
    EXPECT_FALSE(session.isExporting());
    EXPECT_EQ(session.exportProgress(), 1.0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (announced.isEmpty() && std::chrono::steady_clock::now() < deadline)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    EXPECT_EQ(announced, outcome.urls[0]);
}

} // namespace
