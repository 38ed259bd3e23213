#include "app/trimmer/TrimmerInspector.h"
#include "app/trimmer/PlacementPad.h"
#include "app/trimmer/PreviewWidget.h"
#include "app/trimmer/TimelineStrip.h"
#include "app/trimmer/TrimmerPlayer.h"
#include "app/trimmer/TrimmerWindow.h"
#include "media/VideoFrameGrabber.h"

#include "ShownTrimmer.h"
#include "app/TestArtifacts.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QSlider>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QUndoStack>

#include <gtest/gtest.h>

#include <chrono>

using namespace std::chrono_literals;

namespace {
const QColor coral(0xff, 0x6b, 0x5e);

bool near(QColor a, QColor b, int tolerance) {
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

QColor pixelOf(const GrabbedVideoFrame& frame, int x, int y) {
    const uint8_t* bgra = frame.bgra.data() + (size_t(y) * size_t(frame.width) + size_t(x)) * 4;
    return QColor(bgra[2], bgra[1], bgra[0]);
}

class TrimmerInspectorTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(folder.isValid()); }

    // A moving test picture at 30 frames a second, 640x360.
    QString makeMovie(const QString& name, int seconds = 2) {
        const QString movie = QDir(folder.path()).filePath(name);
        const auto status =
            runCommand({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                        "testsrc2=size=640x360:rate=30", "-t", std::to_string(seconds), "-c:v",
                        "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-f",
                        name.endsWith(QLatin1String(".mov")) ? "mov" : "mp4", movie.toStdString()},
                       60s);
        EXPECT_EQ(status, 0) << "ffmpeg could not make " << name.toStdString();
        return movie;
    }

    template <typename T>
    static T& child(QWidget& parent, const QString& name) {
        T* found = parent.findChild<T*>(name);
        EXPECT_NE(found, nullptr) << "no control named " << name.toStdString();
        if (!found)
            throw std::runtime_error("missing control");
        return *found;
    }

    // Waits for the preview to show the frame composed from the newest settings.
    static QColor previewCorner(TrimmerWindow& window, QColor expected) {
        QColor corner;
        waitUntil(
            [&] {
                const QImage frame = window.preview().frame();
                corner = frame.isNull() ? QColor() : QColor(frame.pixel(2, 2));
                return near(corner, expected, 3);
            },
            10s);
        return corner;
    }

    QTemporaryDir folder;
};

// A background colour and a padding chosen in the panel reach the session, the preview at the
// playhead and the exported file's pixels; undo takes them back, and a reopened editor has them.
TEST_F(TrimmerInspectorTest, panelChangesReachPreviewExportAndTheNextSession) {
    REQUIRE_TOOL("ffmpeg");
    const QString movie = makeMovie(QStringLiteral("Demo.mp4"));
    auto window = openShownTrimmer(movie);
    ASSERT_TRUE(window);
    VideoTrimmerViewModel& session = window->session();
    TrimmerInspector& inspector = window->inspector();
    QUndoStack& undo = window->undoStack();

    auto& swatch = child<QAbstractButton>(inspector, QStringLiteral("color:#ff6b5e"));
    swatch.click();
    EXPECT_EQ(session.backgroundSettings.type, StudioBackgroundType::solidColor);
    EXPECT_TRUE(swatch.isChecked());
    EXPECT_TRUE(near(previewCorner(*window, coral), coral, 3)) << "the preview kept its background";

    // One drag of the padding slider is one undo step, however many values it passed.
    auto& padding = child<QSlider>(inspector, QStringLiteral("padding"));
    const int stepsBefore = undo.count();
    emit padding.sliderPressed();
    for (const int position : {20, 60, 90}) // 40, 120, 180 px
        padding.setValue(position);
    EXPECT_DOUBLE_EQ(session.exportStyle.videoPadding, 180.0);
    EXPECT_EQ(undo.count(), stepsBefore + 1);
    undo.undo();
    EXPECT_DOUBLE_EQ(session.exportStyle.videoPadding, 120.0);
    EXPECT_EQ(padding.value(), 60) << "the slider does not follow an undo";
    undo.redo();
    EXPECT_DOUBLE_EQ(session.exportStyle.videoPadding, 180.0);

    // Undoing the colour brings the gradient back, in the session and on the swatch.
    undo.undo();
    undo.undo();
    EXPECT_EQ(session.backgroundSettings.type, StudioBackgroundType::gradient);
    EXPECT_FALSE(swatch.isChecked());
    undo.redo();
    undo.redo();
    ASSERT_EQ(session.backgroundSettings.type, StudioBackgroundType::solidColor);

    // The export draws the same background around the inset picture.
    session.outputURLOverride = QDir(folder.path()).filePath(QStringLiteral("Styled.mp4"));
    std::optional<VideoTrimmerViewModel::ExportOutcome> outcome;
    QObject::connect(window.get(), &TrimmerWindow::exportFinished,
                     [&outcome](const VideoTrimmerViewModel::ExportOutcome& o) { outcome = o; });
    child<QPushButton>(inspector, QStringLiteral("primary")).click();
    EXPECT_TRUE(session.isExporting());
    ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }, 120s));
    ASSERT_FALSE(outcome->error) << outcome->error->toStdString();
    EXPECT_TRUE(inspector.revealButton().isVisibleTo(&inspector));
    std::string error;
    const auto frame = grabVideoFrame(outcome->urls.front(), 1.0, &error);
    ASSERT_TRUE(frame) << error;
    ASSERT_EQ(frame->width, 640);
    EXPECT_TRUE(near(pixelOf(*frame, 4, 4), coral, 14));
    // 180 px at 1080 lines is 60 px here: inside that the recording shows, not the background.
    EXPECT_TRUE(near(pixelOf(*frame, 40, 180), coral, 14));
    EXPECT_FALSE(near(pixelOf(*frame, 320, 180), coral, 40));

    // Closing keeps the look with the edits; the next editor opens with it.
    window.reset();
    auto again = openShownTrimmer(movie);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->session().backgroundSettings.type, StudioBackgroundType::solidColor);
    EXPECT_DOUBLE_EQ(again->session().exportStyle.videoPadding, 180.0);
    EXPECT_EQ(child<QSlider>(again->inspector(), QStringLiteral("padding")).value(), 90);
    EXPECT_TRUE(near(previewCorner(*again, coral), coral, 3));
}

// The shape and codec chosen on the Export tab decide the file: a square H.265 movie.
TEST_F(TrimmerInspectorTest, exportTabChoosesShapeAndCodec) {
    REQUIRE_TOOL("ffmpeg");
    REQUIRE_TOOL("ffprobe");
    auto window = openShownTrimmer(makeMovie(QStringLiteral("Square.mp4"), 1));
    ASSERT_TRUE(window);
    TrimmerInspector& inspector = window->inspector();
    child<QAbstractButton>(inspector, QStringLiteral("aspect:1:1")).click();
    for (QAbstractButton* button : inspector.findChildren<QAbstractButton*>())
        if (button->accessibleName() == QLatin1String("codec:H.265"))
            button->click();
    EXPECT_EQ(window->session().exportStyle.outputAspectRatio, OutputAspectRatio::ratio1x1);
    EXPECT_EQ(window->session().encoding.video.codec, VideoCodecSettings::Codec::hevc);
    // The preview takes the new shape before anything is exported.
    EXPECT_TRUE(waitUntil(
        [&] {
            const QImage frame = window->preview().frame();
            return !frame.isNull() && frame.width() == frame.height();
        },
        10s));

    window->session().outputURLOverride = QDir(folder.path()).filePath(QStringLiteral("Out.mp4"));
    std::optional<VideoTrimmerViewModel::ExportOutcome> outcome;
    QObject::connect(window.get(), &TrimmerWindow::exportFinished,
                     [&outcome](const VideoTrimmerViewModel::ExportOutcome& o) { outcome = o; });
    window->startExport();
    ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }, 180s));
    ASSERT_FALSE(outcome->error) << outcome->error->toStdString();
    const auto probe = commandOutput({"ffprobe", "-v", "error", "-select_streams", "v:0",
                                      "-show_entries", "stream=codec_name,width,height", "-of",
                                      "csv=p=0", outcome->urls.front().toStdString()},
                                     30s);
    ASSERT_TRUE(probe);
    EXPECT_EQ(QString::fromStdString(*probe).trimmed(), QStringLiteral("hevc,640,640"));
}

// Cancel stops a running export at once: no file is left, the panel says so and offers the
// export again.
TEST_F(TrimmerInspectorTest, cancelLeavesNoFileAndOffersTheExportAgain) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeMovie(QStringLiteral("Long.mp4"), 30));
    ASSERT_TRUE(window);
    TrimmerInspector& inspector = window->inspector();
    const QString output = QDir(folder.path()).filePath(QStringLiteral("Cancelled.mp4"));
    window->session().outputURLOverride = output;
    std::optional<VideoTrimmerViewModel::ExportOutcome> outcome;
    QObject::connect(window.get(), &TrimmerWindow::exportFinished,
                     [&outcome](const VideoTrimmerViewModel::ExportOutcome& o) { outcome = o; });
    inspector.exportButton().click();
    ASSERT_TRUE(window->session().isExporting());
    EXPECT_FALSE(inspector.exportButton().isVisibleTo(&inspector));
    QPushButton* cancel = nullptr;
    for (QPushButton* button : inspector.findChildren<QPushButton*>())
        if (button->text() == QStringLiteral("Cancel"))
            cancel = button;
    ASSERT_NE(cancel, nullptr);
    EXPECT_TRUE(cancel->isVisibleTo(&inspector));
    cancel->click();
    ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }, 60s));
    EXPECT_TRUE(outcome->error.has_value());
    EXPECT_FALSE(QFileInfo::exists(output));
    EXPECT_TRUE(inspector.exportButton().isVisibleTo(&inspector));
    EXPECT_FALSE(inspector.revealButton().isVisibleTo(&inspector));
    EXPECT_TRUE(child<QLabel>(inspector, QStringLiteral("exportStatus"))
                    .text()
                    .contains(QStringLiteral("cancelled")));
}

// A zoom picked on the timeline shows on the Zoom tab, whose level and focus change that
// segment, one undo step each.
TEST_F(TrimmerInspectorTest, zoomTabEditsTheSelectedZoom) {
    REQUIRE_TOOL("ffmpeg");
    auto window = openShownTrimmer(makeMovie(QStringLiteral("Zooms.mp4"), 4));
    ASSERT_TRUE(window);
    VideoTrimmerViewModel& session = window->session();
    TrimmerInspector& inspector = window->inspector();
    QTabWidget& tabs = inspector.tabs();
    for (int i = 0; i < tabs.count(); ++i)
        if (tabs.tabText(i) == QStringLiteral("Zoom"))
            tabs.setCurrentIndex(i);
    auto& level = child<QSlider>(inspector, QStringLiteral("zoomLevel"));
    EXPECT_FALSE(level.isVisibleTo(&inspector)) << "zoom controls with no zoom selected";

    window->player().seek(0.3);
    ASSERT_TRUE(window->addZoomAtPlayhead());
    ASSERT_EQ(session.zoomSegments.size(), 1u);
    const ZoomSegment added = session.zoomSegments.front();
    TimelineStrip& timeline = window->timeline();
    const QPointF bar(timeline.xForTime((added.startTime + added.endTime) / 2),
                      timeline.zoomTrackRect().center().y());
    for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        QMouseEvent event(type, bar, timeline.mapToGlobal(bar), Qt::LeftButton,
                          type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton,
                          Qt::NoModifier);
        QApplication::sendEvent(&timeline, &event);
    }
    ASSERT_TRUE(level.isVisibleTo(&inspector));
    EXPECT_EQ(level.value(), int(std::lround(added.zoomLevel * 100)));

    const int steps = window->undoStack().count();
    emit level.sliderPressed();
    level.setValue(240);
    level.setValue(260);
    EXPECT_DOUBLE_EQ(session.zoomSegments.front().zoomLevel, 2.6);
    EXPECT_EQ(session.zoomSegments.front().id, added.id);
    EXPECT_EQ(window->undoStack().count(), steps + 1);

    // A zoom that follows the cursor has no focus to place; held still, it has.
    auto& follow = child<QCheckBox>(inspector, QStringLiteral("zoomFollowsCursor"));
    auto& focus = child<PlacementPad>(inspector, QStringLiteral("zoomFocus"));
    follow.setChecked(true);
    EXPECT_TRUE(session.zoomSegments.front().followCursor);
    EXPECT_FALSE(focus.isEnabled());
    follow.setChecked(false);
    EXPECT_FALSE(session.zoomSegments.front().followCursor);
    ASSERT_TRUE(focus.isEnabled());
    const QRectF canvas = focus.canvasRect();
    const QPointF point = canvas.topLeft() + QPointF(canvas.width() * 0.3, canvas.height() * 0.7);
    QMouseEvent press(QEvent::MouseButtonPress, point, focus.mapToGlobal(point), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&focus, &press);
    ASSERT_TRUE(session.zoomSegments.front().focusPoint.has_value());
    EXPECT_NEAR(session.zoomSegments.front().focusPoint->x, 0.3, 0.02);
    EXPECT_NEAR(session.zoomSegments.front().focusPoint->y, 0.7, 0.02);

    EXPECT_TRUE(saveWidgetScreenshot(*window, QStringLiteral("trimmer-inspector-zoom.png")));
    while (window->undoStack().index() > steps)
        window->undoStack().undo();
    EXPECT_EQ(session.zoomSegments.front(), added);
    EXPECT_EQ(level.value(), int(std::lround(added.zoomLevel * 100)));
}

// A package with a camera gets the Camera tab; dragging on its little canvas places the
// camera. Screenshots of the whole window at this state are kept for a person to look at.
TEST_F(TrimmerInspectorTest, placesTheCameraAndShowsTheWindow) {
    REQUIRE_TOOL("ffmpeg");
    const QString package = QDir(folder.path()).filePath(QStringLiteral("Recording-Lesson"));
    ASSERT_TRUE(QDir().mkpath(package));
    makeMovie(QStringLiteral("Recording-Lesson/.screen.mov"));
    makeMovie(QStringLiteral("Recording-Lesson/.camera.mov"));
    auto window = openShownTrimmer(package);
    ASSERT_TRUE(window);
    window->resize(1320, 780);
    QTabWidget& tabs = window->inspector().tabs();
    QStringList titles;
    for (int i = 0; i < tabs.count(); ++i)
        titles << tabs.tabText(i);
    EXPECT_EQ(titles.join(QLatin1Char(',')).toStdString(),
              "Background,Screen,Camera,Cursor,Zoom,Export");

    tabs.setCurrentIndex(2);
    auto& pad = child<PlacementPad>(window->inspector(), QStringLiteral("cameraPosition"));
    const QRectF canvas = pad.canvasRect();
    const QPointF upperLeft =
        canvas.topLeft() + QPointF(canvas.width() * 0.2, canvas.height() * 0.25);
    QMouseEvent press(QEvent::MouseButtonPress, upperLeft, pad.mapToGlobal(upperLeft),
                      Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&pad, &press);
    const Point placed = window->session().exportStyle.cameraSettings.centerNormalized;
    EXPECT_NEAR(placed.x, 0.2, 0.02);
    EXPECT_NEAR(placed.y, 0.25, 0.02);
    window->undoStack().undo();
    EXPECT_NEAR(window->session().exportStyle.cameraSettings.centerNormalized.x, 0.86, 1e-9);
    window->undoStack().redo();

    child<QAbstractButton>(window->inspector(), QStringLiteral("gradient:ocean")).click();
    processEventsFor(1500ms);
    // The panel sits along the right edge beside a preview that keeps most of the width.
    const QRect panel = window->inspector().geometry();
    EXPECT_EQ(panel.right(), window->width() - 1);
    EXPECT_GT(window->preview().width(), 2 * panel.width());
    // Every tab, for a person to look at.
    for (int i = 0; i < tabs.count(); ++i) {
        tabs.setCurrentIndex(i);
        processEventsFor(200ms);
        EXPECT_TRUE(saveWidgetScreenshot(
            *window, QStringLiteral("trimmer-inspector-%1.png").arg(tabs.tabText(i).toLower())));
    }
}
} // namespace
