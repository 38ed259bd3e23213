#include "TestArtifacts.h"
#include "core/recording/CoordinatorHarness.h"
#include "media/DecodedAudio.h"
#include "media/MovieProbe.h"
#include "support/EventLoop.h"
#include "support/PulseAudioSession.h"
#include "support/ScopedEnvironment.h"

#include "app/DeviceRecordingController.h"
#include "app/DeviceRecordingWindow.h"
#include "app/DeviceSelector.h"
#include "app/FloatingRecordingPanel.h"
#include "app/MainWindow.h"
#include "app/RecordingLauncher.h"
#include "app/camera/CameraPreviewWidget.h"

#include <QDir>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QToolButton>

#include <algorithm>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {
// Where the finished recordings were handed on to be opened.
class OpenedFiles final : public RecordingResultOpener {
public:
    void openTrimmer(const QString& url) override { trimmer << url; }
    void openURL(const QString& url) override { other << url; }
    void activateFileViewerSelecting(const QString& url) override { other << url; }
    QStringList trimmer;
    QStringList other;
};

constexpr double deviceTone = 550.0;

// Where the picture ends: the last frame's time plus its length at the test device's 30 frames a
// second (the file's packets leave their durations to the track's timing).
double pictureEnd(const ProbedStream& video) {
    return video.packetTimes.empty()
               ? 0.0
               : *std::max_element(video.packetTimes.begin(), video.packetTimes.end()) + 1.0 / 30;
}
} // namespace

// The application's Device mode with the real engine on the test device: the coordinator with
// fakes for everything a device recording does not use.
class DeviceRecordingFlow : public CoordinatorHarness {
protected:
    void SetUp() override {
        CoordinatorHarness::SetUp();
        QDir().mkpath(outputFolder());
        defaults->set("outputDirectory", outputFolder());
        launcher = std::make_unique<RecordingLauncher>(*coordinator, realPanel, *defaults);
        recorder = std::make_unique<DeviceRecordingController>(*coordinator, opened, *defaults);
    }
    void TearDown() override {
        recorder.reset();
        launcher.reset();
        CoordinatorHarness::TearDown();
    }

    ScopedEnvironment testDevice{"TAVELQUISTON_TEST_CAMERA", std::string("1")};
    FloatingRecordingPanel realPanel;
    OpenedFiles opened;
    std::unique_ptr<RecordingLauncher> launcher;
    std::unique_ptr<DeviceRecordingController> recorder;
};

// From the Device tile: the picker lists the test device with its size and sound, Record starts
// it with a live preview and a running time, Stop finishes a movie with picture and sound, which
// opens in the trimmer; the coordinator goes through completed back to idle.
TEST_F(DeviceRecordingFlow, DeviceTileRecordsTheChosenDeviceAndOpensTheMovie) {
    START_PULSEAUDIO(sound);
    ASSERT_TRUE(sound.addDeviceSound("tq_device", "tq_device_sound", "Test Camera"));
    ASSERT_TRUE(sound.startTone(deviceTone, 60.0, 0.5, "tq_device"));

    MainWindow window(*coordinator, *launcher, *recorder, factory, *defaults);
    window.show();
    auto* tile = window.findChild<QToolButton*>(QStringLiteral("modeTile_device"));
    ASSERT_NE(tile, nullptr);
    tile->click();
    EXPECT_EQ(window.mode(), MainWindow::Mode::device);
    EXPECT_TRUE(saveWidgetScreenshot(window, "main-window-device-mode.png"));

    window.record();
    ASSERT_TRUE(
        waitUntil([&] { return qobject_cast<DeviceSelector*>(window.openSelector()); }, 10s));
    auto* selector = qobject_cast<DeviceSelector*>(window.openSelector());
    auto* list = selector->findChild<QListWidget*>(QStringLiteral("deviceList"));
    ASSERT_NE(list, nullptr);
    const auto rows = list->findItems(QStringLiteral("Test Camera"), Qt::MatchStartsWith);
    ASSERT_EQ(rows.size(), 1);
    EXPECT_TRUE(rows.front()->text().contains(QStringLiteral("1280 × 720")));
    EXPECT_TRUE(rows.front()->text().contains(QStringLiteral("Sound: Test Camera")))
        << rows.front()->text().toStdString();
    list->setCurrentItem(rows.front());
    auto* record = selector->findChild<QPushButton*>(QStringLiteral("selectorRecordButton"));
    ASSERT_TRUE(record && record->isEnabled());
    EXPECT_TRUE(saveWidgetScreenshot(*selector, "device-selector.png"));

    record->click();
    ASSERT_TRUE(recorder->isRecording());
    EXPECT_FALSE(window.isVisible());
    DeviceRecordingWindow* preview = recorder->window();
    ASSERT_NE(preview, nullptr);
    EXPECT_TRUE(preview->isVisible());
    EXPECT_TRUE(waitUntil([&] { return preview->preview()->hasPaintedFrame(); }, 10s));
    EXPECT_TRUE(waitUntil([&] { return preview->elapsedText() == QStringLiteral("00:02"); }, 10s));
    EXPECT_EQ(preview->findChild<QLabel*>(QStringLiteral("deviceSoundLabel"))->text(),
              QStringLiteral("Sound: Test Camera"));
    EXPECT_TRUE(saveWidgetScreenshot(*preview, "device-recording.png"));

    preview->findChild<QPushButton*>(QStringLiteral("deviceStopButton"))->click();
    ASSERT_TRUE(waitUntil([&] { return !recorder->isRecording(); }, 30s));
    EXPECT_EQ(recorder->window(), nullptr);
    const auto* completed = coordinator->recordingState().as<RecordingState::Completed>();
    ASSERT_NE(completed, nullptr);
    ASSERT_EQ(opened.trimmer, QStringList{completed->fileURL});
    EXPECT_TRUE(completed->fileURL.startsWith(outputFolder()));

    const auto probed = probeMovie(completed->fileURL.toStdString());
    ASSERT_TRUE(probed && probed->first(AVMEDIA_TYPE_VIDEO) && probed->first(AVMEDIA_TYPE_AUDIO));
    const double videoEnd = pictureEnd(*probed->first(AVMEDIA_TYPE_VIDEO));
    EXPECT_EQ(probed->first(AVMEDIA_TYPE_VIDEO)->width, 1280);
    // The time runs from the click; the picture from the first frame, a moment later.
    EXPECT_GT(videoEnd, 1.5);
    const auto decoded = decodeAudio(completed->fileURL.toStdString());
    ASSERT_TRUE(decoded);
    EXPECT_NEAR(decoded->seconds(), videoEnd, 1.0 / 30);
    EXPECT_NEAR(decoded->toneFrequency(0, 0.2, videoEnd - 0.2), deviceTone, 2.0);

    // Like any finished recording, completed gives way to idle, so the next one can start.
    clock.advance(0.2);
    EXPECT_TRUE(waitUntil(
        [&] {
            drainEvents(clock);
            return coordinator->recordingState().is<RecordingState::Idle>();
        },
        5s));
}

// With nothing attached the picker says so in words, and there is nothing to record.
TEST_F(DeviceRecordingFlow, PickerWithoutDevicesSaysWhatToDo) {
    DeviceSelector selector({});
    selector.show();
    auto* empty = selector.findChild<QLabel*>(QStringLiteral("noDevicesLabel"));
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->isVisible());
    EXPECT_FALSE(
        selector.findChild<QPushButton*>(QStringLiteral("selectorRecordButton"))->isEnabled());
    EXPECT_TRUE(saveWidgetScreenshot(selector, "device-selector-empty.png"));
}
