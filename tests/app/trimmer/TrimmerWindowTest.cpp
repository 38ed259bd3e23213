#include "app/trimmer/TrimmerWindow.h"
#include "app/trimmer/PreviewWidget.h"
#include "app/trimmer/TimelineStrip.h"
#include "app/trimmer/TrimmerPlayer.h"
#include "exporter/AdvancedVideoExporter.h"
#include "exporter/RoundedCameraVideoCompositing.h"
#include "media/export/VideoTrackReader.h"

#include "support/ChildProcess.h"
#include "support/MissingTool.h"
#include "support/XvfbSession.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMouseEvent>
#include <QSlider>
#include <QTemporaryDir>
#include <QUndoStack>
#include <QWheelEvent>

#include "ShownTrimmer.h"
#include "support/EventLoop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>

using namespace std::chrono_literals;

namespace {
// Large enough for every panel of the window, as on a laptop screen.
const QSize windowSize{1120, 760};

// Where screenshots go for a person to look at.
std::filesystem::path artefactFolder() {
    const char* set = std::getenv("TAVELQUISTON_TEST_ARTEFACTS");
    std::filesystem::path folder = set ? set : "/tmp/tavelquiston-test-artefacts";
    std::filesystem::create_directories(folder);
    return folder;
}

class TrimmerWindowTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(folder.isValid()); }

    // Three seconds of a moving test picture at 30 frames a second, with a tone.
    QString makeRecording() {
        const QString movie = QDir(folder.path()).filePath(QStringLiteral("Lesson.mp4"));
        const auto status = runCommand({"ffmpeg",
                                        "-v",
                                        "error",
                                        "-y",
                                        "-f",
                                        "lavfi",
                                        "-i",
                                        "testsrc2=size=640x360:rate=30",
                                        "-f",
                                        "lavfi",
                                        "-i",
                                        "sine=frequency=330:sample_rate=48000",
                                        "-t",
                                        "3",
                                        "-c:v",
                                        "libx264",
                                        "-preset",
                                        "ultrafast",
                                        "-pix_fmt",
                                        "yuv420p",
                                        "-c:a",
                                        "aac",
                                        movie.toStdString()},
                                       60s);
        EXPECT_EQ(status, 0) << "ffmpeg could not make the test recording";
        return movie;
    }

    QTemporaryDir folder;
};

// What the preview shows after stepping is what the export's own compositor makes of the
// source frame at that time: the same pixels, within rounding.
TEST_F(TrimmerWindowTest, steppedPreviewMatchesTheExportCompositor) {
    REQUIRE_TOOL("ffmpeg");
    const QString movie = makeRecording();
    auto window = openShownTrimmer(movie, windowSize);
    ASSERT_TRUE(window);
    TrimmerPlayer& player = window->player();
    player.seek(1.0);
    ASSERT_TRUE(waitUntil([&] { return player.currentFrameTime() == 1.0; }));
    for (int k = 0; k < 3; ++k) {
        const double before = player.currentFrameTime();
        player.step(1);
        ASSERT_TRUE(waitUntil([&] { return player.currentFrameTime() != before; }));
    }
    const double shown = player.currentFrameTime();
    // Three frames on at 30 a second, each step landing inside its frame.
    EXPECT_NEAR(shown, 1.0 + 3.0 / 30.0, 1.0 / 30.0);
    const QImage preview = player.currentFrame().convertToFormat(QImage::Format_ARGB32);

    std::string error;
    auto reader = VideoTrackReader::open(movie.toStdString(), error);
    ASSERT_TRUE(reader) << error;
    VideoTrimmerViewModel& session = window->session();
    const Size natural{double(reader->width()), double(reader->height())};
    RoundedCameraCompositorSettings settings = AdvancedVideoExporter::compositorSettings(
        session.styledExportArguments(window->style()), natural, {0.0, 0.0});
    RoundedCameraVideoCompositing compositing(settings);
    std::promise<VideoFrame> composed;
    VideoCompositionRequest request;
    request.compositionTime = MediaTime::fromSeconds(shown, 600);
    request.renderWidth = reader->width();
    request.renderHeight = reader->height();
    request.sourceFrames = {reader->frameAt(MediaTime::fromSeconds(shown, 600))};
    request.finish = [&composed](VideoFrame frame) { composed.set_value(frame); };
    compositing.startRequest(std::move(request));
    auto future = composed.get_future();
    ASSERT_EQ(future.wait_for(20s), std::future_status::ready);
    const VideoFrame expected = future.get();
    ASSERT_FALSE(expected.isNull());
    ASSERT_EQ(preview.width(), expected.width());
    ASSERT_EQ(preview.height(), expected.height());
    int worst = 0;
    for (int y = 0; y < preview.height(); ++y) {
        const uint8_t* want = expected.bytes() + size_t(y) * size_t(expected.bytesPerRow());
        const uint8_t* got = preview.constScanLine(y);
        for (int x = 0; x < preview.width() * 4; ++x)
            worst = std::max(worst, std::abs(int(want[x]) - int(got[x])));
    }
    EXPECT_LE(worst, 2) << "the preview differs from the export's frame";

    // The plain recording is the decoded frame itself, of the movie's own size.
    player.setStyled(false);
    ASSERT_TRUE(waitUntil([&] { return player.currentFrame().size() == QSize(640, 360); }));
}

// Splitting at the playhead and removing the selected part go through the session; the window
// title names the file; a screenshot of the whole window is kept for a person to look at.
TEST_F(TrimmerWindowTest, splitsRemovesAndShowsTheWholeWindow) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeRecording(), windowSize);
    ASSERT_TRUE(window);
    EXPECT_TRUE(window->windowTitle().contains(QStringLiteral("Lesson.mp4")));
    TrimmerPlayer& player = window->player();
    player.seek(0.3);
    EXPECT_TRUE(window->addZoomAtPlayhead());
    player.seek(1.2);
    EXPECT_TRUE(window->splitAtPlayhead());
    player.seek(2.0);
    EXPECT_TRUE(window->splitAtPlayhead());
    const auto& segments = window->session().segments();
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_NEAR(segments[1].startTimeInSeconds(), 1.2, 0.01);

    // A click on the middle part of the video track selects it; Delete marks it removed.
    TimelineStrip& timeline = window->timeline();
    const QPointF middle(timeline.xForTime(1.6), timeline.videoTrackRect().center().y());
    QMouseEvent press(QEvent::MouseButtonPress, middle, timeline.mapToGlobal(middle),
                      Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&timeline, &press);
    QMouseEvent release(QEvent::MouseButtonRelease, middle, timeline.mapToGlobal(middle),
                        Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&timeline, &release);
    ASSERT_TRUE(timeline.selectedSegment().has_value());
    EXPECT_TRUE(window->toggleSelectedSegment());
    EXPECT_FALSE(segments[0].isMarkedForDeletion);
    EXPECT_TRUE(segments[1].isMarkedForDeletion);
    EXPECT_NEAR(window->session().totalActiveDuration(), 3.0 - 0.8, 0.05);
    // The click moved the playhead there.
    EXPECT_TRUE(waitUntil([&] { return std::abs(player.position() - 1.6) < 0.05; }));

    // Let the waveform arrive, then keep the picture.
    waitUntil([] { return false; }, 1500ms);
    const QImage shot = window->grab().toImage();
    EXPECT_EQ(shot.size(), window->size() * window->devicePixelRatio());
    const auto path = artefactFolder() / "trimmer-window.png";
    EXPECT_TRUE(shot.save(QString::fromStdString(path.string())));
}

// Every segment edit can be undone and redone, back to the exact segments before and after.
TEST_F(TrimmerWindowTest, undoesAndRedoesSegmentEdits) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeRecording(), windowSize);
    ASSERT_TRUE(window);
    VideoTrimmerViewModel& session = window->session();
    window->player().seek(1.0);
    ASSERT_TRUE(window->splitAtPlayhead());
    const std::vector<VideoSegment> afterSplit = session.segments();
    window->timeline().setSelectedSegment(afterSplit.front().id);
    ASSERT_TRUE(window->toggleSelectedSegment());
    const std::vector<VideoSegment> afterRemove = session.segments();
    // A split on an existing cut changes nothing and leaves nothing to undo.
    EXPECT_FALSE(window->splitAtPlayhead());
    ASSERT_EQ(window->undoStack().count(), 2);

    window->undoStack().undo();
    EXPECT_EQ(session.segments(), afterSplit);
    window->undoStack().undo();
    EXPECT_EQ(session.segments().size(), 0u) << "before the first split there were no cuts";
    EXPECT_NEAR(session.totalActiveDuration(), 0.0, 1e-9);
    window->undoStack().redo();
    window->undoStack().redo();
    EXPECT_EQ(session.segments(), afterRemove);
    EXPECT_NEAR(session.totalActiveDuration(), 2.0, 0.05);
}

// Playback follows the steady clock at the chosen speed, shows frames as it goes, and stops at
// the end unless it loops.
TEST_F(TrimmerWindowTest, playsByTheClockAndStopsAtTheEnd) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeRecording(), windowSize);
    ASSERT_TRUE(window);
    TrimmerPlayer& player = window->player();
    int framesShown = 0;
    QObject::connect(&player, &TrimmerPlayer::frameShown, [&framesShown] { ++framesShown; });
    const auto started = std::chrono::steady_clock::now();
    player.play();
    EXPECT_TRUE(player.isPlaying());
    waitUntil([] { return false; }, 500ms);
    player.pause();
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    // The playhead never runs ahead of the clock; a loaded machine may make it lag a little.
    EXPECT_LE(player.position(), wall + 0.02);
    EXPECT_GE(player.position(), 0.3);
    EXPECT_GE(framesShown, 3) << "playback showed no new frames";

    player.setRate(4.0);
    player.seek(2.0);
    player.play();
    ASSERT_TRUE(waitUntil([&] { return !player.isPlaying(); }, 5s))
        << "playback did not stop at the end";
    EXPECT_DOUBLE_EQ(player.position(), player.duration());
}

void sendMouse(QWidget& widget, QEvent::Type type, QPointF at) {
    const Qt::MouseButtons held =
        type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(Qt::LeftButton);
    QMouseEvent event(type, at, widget.mapToGlobal(at), Qt::LeftButton, held, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}

// A zoom segment added at the playhead is moved by dragging its middle and lengthened by
// dragging its end, through the zoom track's rules; the styled preview shows the zoom; undo
// puts every step back.
TEST_F(TrimmerWindowTest, dragsZoomSegmentsWithTheMouse) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeRecording(), windowSize);
    ASSERT_TRUE(window);
    VideoTrimmerViewModel& session = window->session();
    TrimmerPlayer& player = window->player();
    player.seek(1.5);
    ASSERT_TRUE(waitUntil([&] { return player.currentFrameTime() == 1.5; }));
    const QImage unzoomed = player.currentFrame();
    player.seek(0.2);
    ASSERT_TRUE(window->addZoomAtPlayhead());
    ASSERT_EQ(session.zoomSegments.size(), 1u);
    const ZoomSegment added = session.zoomSegments.front();
    EXPECT_NEAR(added.startTime, 0.2, 0.01);

    // The preview draws the new zoom: the frame at 1.5 s is no longer the unzoomed one.
    player.seek(1.5);
    ASSERT_TRUE(waitUntil([&] {
        return player.currentFrameTime() == 1.5 && player.currentFrame() != unzoomed;
    })) << "the styled preview did not take the new zoom segment";

    TimelineStrip& timeline = window->timeline();
    const double y = timeline.zoomTrackRect().center().y();
    const double middle = (added.startTime + added.endTime) / 2;
    sendMouse(timeline, QEvent::MouseButtonPress, {timeline.xForTime(middle), y});
    sendMouse(timeline, QEvent::MouseMove, {timeline.xForTime(middle - 0.1), y});
    sendMouse(timeline, QEvent::MouseButtonRelease, {timeline.xForTime(middle - 0.1), y});
    ASSERT_EQ(session.zoomSegments.size(), 1u);
    const ZoomSegment moved = session.zoomSegments.front();
    EXPECT_NEAR(moved.startTime, added.startTime - 0.1, 0.02);
    EXPECT_NEAR(moved.endTime - moved.startTime, added.endTime - added.startTime, 1e-6);
    EXPECT_EQ(timeline.selectedZoomSegment(), added.id);

    // Its end handle, dragged past the video's end, stops there.
    const double endX = timeline.xForTime(moved.endTime) - 3;
    sendMouse(timeline, QEvent::MouseButtonPress, {endX, y});
    sendMouse(timeline, QEvent::MouseMove, {double(timeline.width()), y});
    sendMouse(timeline, QEvent::MouseButtonRelease, {double(timeline.width()), y});
    const ZoomSegment resized = session.zoomSegments.front();
    EXPECT_NEAR(resized.startTime, moved.startTime, 1e-6);
    EXPECT_GT(resized.endTime, moved.endTime);
    EXPECT_LE(resized.endTime, 3.0 + 0.02);

    ASSERT_EQ(window->undoStack().count(), 3);
    window->undoStack().undo();
    EXPECT_EQ(session.zoomSegments.front(), moved);
    window->undoStack().undo();
    EXPECT_EQ(session.zoomSegments.front(), added);
    window->undoStack().undo();
    EXPECT_TRUE(session.zoomSegments.empty());
    window->undoStack().redo();
    ASSERT_EQ(session.zoomSegments.size(), 1u);
    window->timeline().setSelectedZoomSegment(added.id);
    EXPECT_TRUE(window->deleteSelectedZoom());
    EXPECT_TRUE(session.zoomSegments.empty());
}

// Ctrl+wheel zooms the time scale around the pointer, the wheel pans it, and a playhead that
// leaves the view takes it along.
TEST_F(TrimmerWindowTest, zoomsAndPansTheTimeScale) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeRecording(), windowSize);
    ASSERT_TRUE(window);
    TimelineStrip& timeline = window->timeline();
    ASSERT_TRUE(timeline.viewport().isShowingFullDuration());
    const QPointF at(timeline.xForTime(1.0), timeline.rulerRect().center().y());
    const auto wheel = [&](int notches, Qt::KeyboardModifiers modifiers) {
        QWheelEvent event(at, timeline.mapToGlobal(at), {}, {0, notches * 120}, Qt::NoButton,
                          modifiers, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&timeline, &event);
    };
    wheel(4, Qt::ControlModifier);
    EXPECT_LT(timeline.viewport().visibleDuration(), 2.0);
    EXPECT_NEAR(timeline.timeForX(at.x()), 1.0, 0.01) << "the time under the pointer moved";
    const double start = timeline.viewport().visibleStart;
    wheel(-2, Qt::NoModifier);
    EXPECT_GT(timeline.viewport().visibleStart, start);

    window->player().seek(2.95);
    EXPECT_GE(2.95, timeline.viewport().visibleStart);
    EXPECT_LE(2.95, timeline.viewport().visibleEnd);
    window->player().seek(0.0);
    EXPECT_DOUBLE_EQ(timeline.viewport().visibleStart, 0.0);
}

// Edits are kept beside the recording as they are made: a window opened again (after a close
// or a crash) shows the same parts with the same marks and the playhead where it was.
TEST_F(TrimmerWindowTest, reopensWhereTheEditorWasLeft) {
    REQUIRE_TOOL("ffmpeg");
    const QString movie = makeRecording();
    std::vector<VideoSegment> edited;
    std::vector<ZoomSegment> zoom;
    {
        auto window = openShownTrimmer(movie, windowSize);
        ASSERT_TRUE(window);
        window->player().seek(0.8);
        ASSERT_TRUE(window->splitAtPlayhead());
        window->player().seek(2.4);
        ASSERT_TRUE(window->splitAtPlayhead());
        window->timeline().setSelectedSegment(window->session().segments()[1].id);
        ASSERT_TRUE(window->toggleSelectedSegment());
        edited = window->session().segments();
        window->player().seek(1.0);
        ASSERT_TRUE(window->addZoomAtPlayhead());
        zoom = window->session().zoomSegments;
        window->player().seek(2.5);
    }
    EXPECT_TRUE(QFile::exists(QDir(folder.path()).filePath(".Lesson.trimmer.json")));
    auto again = openShownTrimmer(movie, windowSize);
    ASSERT_TRUE(again);
    const auto& restored = again->session().segments();
    ASSERT_EQ(restored.size(), edited.size());
    for (size_t i = 0; i < restored.size(); ++i) {
        EXPECT_NEAR(restored[i].startTimeInSeconds(), edited[i].startTimeInSeconds(), 0.01);
        EXPECT_EQ(restored[i].isMarkedForDeletion, edited[i].isMarkedForDeletion);
    }
    EXPECT_NEAR(again->player().position(), 2.5, 0.01);
    EXPECT_EQ(again->session().zoomSegments, zoom);

    // State written for another recording of the same name is not applied to this one.
    QFile state(QDir(folder.path()).filePath(".Lesson.trimmer.json"));
    ASSERT_TRUE(state.open(QIODevice::WriteOnly));
    state.write(R"({"version":1,"duration":99,"playhead":1,"cuts":[{"start":0,"end":50}]})");
    state.close();
    again.reset();
    auto fresh = openShownTrimmer(movie, windowSize);
    ASSERT_TRUE(fresh);
    EXPECT_TRUE(fresh->session().segments().empty());
}

// An export from the window runs the session's export, shows its progress, and writes a
// readable movie without the removed part.
TEST_F(TrimmerWindowTest, exportsTheEditedRecording) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeRecording(), windowSize);
    ASSERT_TRUE(window);
    window->player().seek(1.5);
    ASSERT_TRUE(window->splitAtPlayhead());
    window->timeline().setSelectedSegment(window->session().segments().back().id);
    ASSERT_TRUE(window->toggleSelectedSegment());
    window->session().outputURLOverride = QDir(folder.path()).filePath("Out.mp4");
    std::optional<VideoTrimmerViewModel::ExportOutcome> outcome;
    QObject::connect(window.get(), &TrimmerWindow::exportFinished,
                     [&outcome](const VideoTrimmerViewModel::ExportOutcome& o) { outcome = o; });
    window->startExport();
    EXPECT_TRUE(window->session().isExporting());
    ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }, 120s));
    ASSERT_FALSE(outcome->error) << outcome->error->toStdString();
    std::string error;
    auto reader = VideoTrackReader::open(outcome->urls.front().toStdString(), error);
    ASSERT_TRUE(reader) << error;
    EXPECT_NEAR(reader->duration().seconds(), 1.5, 0.1);
}

// Files that are not recordings never give a window: each says which file and why.
TEST_F(TrimmerWindowTest, refusesMissingForeignAndTruncatedFiles) {
    REQUIRE_TOOL("ffmpeg");
    const QString movie = makeRecording();
    const QString text = QDir(folder.path()).filePath("notes.mp4");
    QFile notes(text);
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("not a movie at all\n");
    notes.close();
    const QString cut = QDir(folder.path()).filePath("cut.mp4");
    QFile::copy(movie, cut);
    QFile truncated(cut);
    ASSERT_TRUE(truncated.resize(QFile(movie).size() / 3));
    for (const QString& path :
         {QDir(folder.path()).filePath("absent.mp4"), text, cut, folder.path()}) {
        QString error;
        EXPECT_FALSE(TrimmerWindow::open(path, error)) << path.toStdString();
        EXPECT_TRUE(error.startsWith(QStringLiteral("Failed to load asset")))
            << error.toStdString();
    }
}

// The program opens a file given on its command line in a trimmer on a real X server, with the
// file's name in the window's title; a screenshot of the screen is kept.
TEST_F(TrimmerWindowTest, programOpensAFileOnXvfb) {
    REQUIRE_TOOL("ffmpeg");
    XvfbSession::Options xvfb;
    xvfb.windowManager = true;
    REQUIRE_XVFB(xvfb);
    const QString movie = makeRecording();
    XvfbSession session(xvfb);
    ASSERT_TRUE(session.isReady()) << session.error();
    ChildProcess::Options options;
    options.unsetEnvironment = {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY"};
    options.environment = {{"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
                           {"XDG_CONFIG_HOME", "/tmp/tq-trimmer-test-config"}};
    ChildProcess app({TAVELQUISTON_APP_PATH, movie.toStdString()}, options);
    const auto found = commandOutput({"xdotool", "search", "--sync", "--name", "Lesson.mp4"}, 15s);
    ASSERT_TRUE(found.has_value() && !found->empty()) << "no trimmer window named the file";
    EXPECT_TRUE(app.isRunning());
    std::this_thread::sleep_for(1500ms);
    const auto shot = artefactFolder() / "trimmer-xvfb.png";
    EXPECT_EQ(runCommand({"ffmpeg", "-v", "error", "-y", "-f", "x11grab", "-i", session.display(),
                          "-frames:v", "1", shot.string()},
                         20s),
              0);
}
} // namespace
