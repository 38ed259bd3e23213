#include "app/VideoTrimmerManager.h"
#include "app/PreviewWindow.h"
#include "app/trimmer/TrimmerWindow.h"

#include "support/ChildProcess.h"
#include "support/EventLoop.h"

#include <QApplication>
#include <QDir>
#include <QEnterEvent>
#include <QFile>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>

using namespace std::chrono_literals;

namespace {
class VideoTrimmerManagerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(folder.isValid()); }
    // Windows close and delete themselves later; the next test starts with none.
    void TearDown() override {
        for (QWidget* widget : QApplication::topLevelWidgets())
            widget->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    QString makeMovie(const QString& name) {
        const QString movie = QDir(folder.path()).filePath(name);
        const auto status =
            runCommand({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                        "testsrc2=size=320x180:rate=30", "-t", "1", "-c:v", "libx264", "-preset",
                        "ultrafast", "-pix_fmt", "yuv420p", movie.toStdString()},
                       60s);
        EXPECT_EQ(status, 0) << "ffmpeg could not make " << name.toStdString();
        return movie;
    }

    QTemporaryDir folder;
};

// However a recording is named (another spelling of its path, a link to it), it has one
// window; another recording gets its own, and a closed window no longer counts.
TEST_F(VideoTrimmerManagerTest, keepsOneWindowPerRecording) {
    REQUIRE_TOOL("ffmpeg");
    VideoTrimmerManager& manager = VideoTrimmerManager::shared();
    const QString first = makeMovie(QStringLiteral("First.mp4"));
    const QString second = makeMovie(QStringLiteral("Second.mp4"));
    const QString link = QDir(folder.path()).filePath(QStringLiteral("Shortcut.mp4"));
    ASSERT_TRUE(QFile::link(first, link));

    TrimmerWindow* window = manager.openTrimmer(first);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(manager.openTrimmer(folder.path() + QStringLiteral("/./First.mp4")), window);
    EXPECT_EQ(manager.openTrimmer(link), window);
    EXPECT_EQ(manager.openTrimmerCount(), 1);
    EXPECT_TRUE(window->isVisible());

    TrimmerWindow* other = manager.openTrimmer(second);
    ASSERT_NE(other, nullptr);
    EXPECT_NE(other, window);
    EXPECT_EQ(manager.openTrimmerCount(), 2);

    QPointer<TrimmerWindow> closing(window);
    window->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(closing.isNull());
    EXPECT_EQ(manager.trimmerFor(first), nullptr);
    TrimmerWindow* reopened = manager.openTrimmer(first);
    ASSERT_NE(reopened, nullptr);
    EXPECT_EQ(manager.openTrimmerCount(), 2);
}

// A file that is not a recording gives no window and leaves nothing behind in the manager.
TEST_F(VideoTrimmerManagerTest, refusesWhatIsNotARecording) {
    const QString text = QDir(folder.path()).filePath(QStringLiteral("notes.mp4"));
    QFile notes(text);
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("not a movie\n");
    notes.close();
    // The explaining dialog would wait for a click: close it as soon as it shows.
    QTimer closer;
    QObject::connect(&closer, &QTimer::timeout, [] {
        if (QWidget* dialog = QApplication::activeModalWidget())
            dialog->close();
    });
    closer.start(20);
    EXPECT_EQ(VideoTrimmerManager::shared().openTrimmer(text), nullptr);
    EXPECT_EQ(VideoTrimmerManager::shared().trimmerFor(text), nullptr);
}

// The preview's Edit opens the recording's trimmer through the manager and goes away.
TEST_F(VideoTrimmerManagerTest, previewEditOpensTheTrimmer) {
    REQUIRE_TOOL("ffmpeg");
    const QString movie = makeMovie(QStringLiteral("Finished.mp4"));
    QPointer<PreviewWindow> preview(new PreviewWindow(movie));
    preview->show();
    auto* edit = preview->findChild<QPushButton*>(QStringLiteral("previewEdit"));
    ASSERT_NE(edit, nullptr);
    edit->click();
    TrimmerWindow* window = VideoTrimmerManager::shared().trimmerFor(movie);
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(window->windowTitle().contains(QStringLiteral("Finished.mp4")));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(preview.isNull()) << "the preview stayed after Edit";
}

// The preview closes by itself after its time, but not while the pointer rests on it.
TEST_F(VideoTrimmerManagerTest, previewWaitsWhileHoveredThenCloses) {
    QPointer<PreviewWindow> preview(
        new PreviewWindow(QDir(folder.path()).filePath(QStringLiteral("Any.mp4")), nullptr, 0.3));
    preview->show();
    EXPECT_TRUE(preview->isAutoClosePending());
    QEnterEvent enter(QPointF(10, 10), QPointF(10, 10), preview->mapToGlobal(QPointF(10, 10)));
    QApplication::sendEvent(preview, &enter);
    EXPECT_FALSE(preview->isAutoClosePending());
    processEventsFor(600ms);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_FALSE(preview.isNull()) << "closed under the pointer";
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(preview, &leave);
    EXPECT_TRUE(preview->isAutoClosePending());
    EXPECT_TRUE(waitUntil(
        [&] {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            return preview.isNull();
        },
        5s));
}
} // namespace
