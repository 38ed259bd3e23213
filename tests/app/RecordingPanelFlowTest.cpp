#include "TestArtifacts.h"
#include "core/recording/CoordinatorHarness.h"

#include "app/CountdownOverlay.h"
#include "app/DesktopGeometry.h"
#include "app/DeviceRecordingController.h"
#include "app/FloatingRecordingPanel.h"
#include "app/MainWindow.h"
#include "app/RecordingLauncher.h"
#include "app/TrayStatusBar.h"

#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>

#include <thread>

using namespace std::chrono_literals;

namespace {
QStringList actionTexts(const QMenu& menu) {
    QStringList texts;
    for (const QAction* action : menu.actions())
        if (!action->isSeparator())
            texts << action->text();
    return texts;
}
} // namespace

// The real panel and tray controls on a coordinator with fake engines and a fake clock.
class RecordingPanelFlow : public CoordinatorHarness {
protected:
    void SetUp() override {
        CoordinatorHarness::SetUp();
        coordinator.reset();
        RecordingServices services;
        services.engines = &factory;
        services.clock = &clock;
        services.defaults = defaults.get();
        services.sleepPreventer = &sleepPreventer;
        services.shortcuts = &shortcuts;
        services.notifications = &notifications;
        services.statusBar = &tray;
        services.panel = &realPanel;
        services.resultOpener = &opener;
        services.cursorHider = &hider;
        services.systemEvents = &systemEvents;
        services.availableDiskSpace = [this](const QString&) { return freeSpace; };
        services.startupLogDirectory = folder.filePath("logs");
        coordinator = std::make_unique<RecordingCoordinator>(std::move(services));
        launcher = std::make_unique<RecordingLauncher>(*coordinator, realPanel, *defaults);
    }
    void TearDown() override {
        launcher.reset();
        CoordinatorHarness::TearDown();
    }

    QWidget& panelWindow() { return *realPanel.window(); }
    QString shownStatus() {
        return panelWindow().findChild<QLabel*>(QStringLiteral("panelStatusLabel"))->text();
    }
    QPushButton* button(const char* name) {
        return panelWindow().findChild<QPushButton*>(QString::fromLatin1(name));
    }
    // Advances the fake clock and lets the panel's own (real) refresh timer catch up.
    bool waitForStatus(const QString& text) {
        const auto deadline = std::chrono::steady_clock::now() + 2s;
        while (std::chrono::steady_clock::now() < deadline) {
            drainEvents(clock);
            if (shownStatus() == text)
                return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }

    FloatingRecordingPanel realPanel;
    TrayStatusBar tray;
    std::unique_ptr<RecordingLauncher> launcher;
};

// Start with a countdown of 3, record, pause, resume and stop: the panel and the tray say what
// happens at each step, and the controls drive the coordinator.
TEST_F(RecordingPanelFlow, PanelAndTrayFollowAWholeRecording) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.countdown = 3;
    auto start = launch(launcher->start(configuration));
    drainEvents(clock);

    ASSERT_NE(realPanel.window(), nullptr);
    EXPECT_TRUE(panelWindow().isVisible());
    EXPECT_TRUE(panelWindow().windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_TRUE(panelWindow().windowFlags().testFlag(Qt::FramelessWindowHint));
    // Preparation runs on the thread pool; the count shows when it is done.
    EXPECT_TRUE(waitForStatus("Rec in 3")) << shownStatus().toStdString();
    EXPECT_TRUE(button("panelCancelButton")->isVisibleTo(&panelWindow()));
    EXPECT_FALSE(button("panelStopButton")->isVisibleTo(&panelWindow()));
    EXPECT_TRUE(saveWidgetScreenshot(panelWindow(), "panel-countdown.png"));
    // The big number stands in the middle of the display that will be recorded.
    ASSERT_NE(realPanel.countdownOverlay(), nullptr);
    EXPECT_TRUE(realPanel.countdownOverlay()->isVisible());
    EXPECT_EQ(realPanel.countdownOverlay()->count(), 3);
    EXPECT_EQ(realPanel.countdownOverlay()->geometry().center(),
              DesktopGeometry::toTopLeft(Rect(0, 0, 1920, 1080)).center());
    EXPECT_TRUE(saveWidgetScreenshot(*realPanel.countdownOverlay(), "countdown-overlay.png"));

    clock.advance(1.0);
    EXPECT_TRUE(waitForStatus("Rec in 2"));
    clock.advance(2.0);
    ASSERT_TRUE(settle(start, clock));
    ASSERT_EQ(start->errorText(), "");
    EXPECT_TRUE(coordinator->recordingState().isRecording());
    EXPECT_TRUE(waitForStatus("00:00"));
    EXPECT_FALSE(realPanel.countdownOverlay()->isVisible());
    EXPECT_EQ(button("panelPauseButton")->text(), "Pause");
    EXPECT_EQ(button("panelStopButton")->text(), "Stop Recording");
    EXPECT_FALSE(button("panelCancelButton")->isVisibleTo(&panelWindow()));
    EXPECT_EQ(actionTexts(*tray.menu()).mid(0, 2),
              QStringList({"Stop Recording", "Pause Recording"}));

    clock.advance(65.0);
    EXPECT_TRUE(waitForStatus("01:05"));
    EXPECT_EQ(tray.title(), "⏺ 01:05");
    EXPECT_TRUE(saveWidgetScreenshot(panelWindow(), "panel-recording.png"));

    button("panelPauseButton")->click();
    EXPECT_TRUE(coordinator->isPaused());
    EXPECT_EQ(button("panelPauseButton")->text(), "Resume");
    EXPECT_EQ(actionTexts(*tray.menu()).value(1), "Resume Recording");
    // Paused time does not count.
    clock.advance(30.0);
    EXPECT_TRUE(waitForStatus("01:05"));

    tray.handlePauseResume();
    EXPECT_FALSE(coordinator->isPaused());
    EXPECT_EQ(button("panelPauseButton")->text(), "Pause");
    clock.advance(2.0);
    EXPECT_TRUE(waitForStatus("01:07"));

    button("panelStopButton")->click();
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (!coordinator->recordingState().is<RecordingState::Completed>() &&
           !coordinator->recordingState().is<RecordingState::Idle>() &&
           std::chrono::steady_clock::now() < deadline)
        drainEvents(clock);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Completed>() ||
                coordinator->recordingState().is<RecordingState::Idle>());
    EXPECT_FALSE(panelWindow().isVisible());
    EXPECT_FALSE(tray.isRecording());
    EXPECT_EQ(actionTexts(*tray.menu()).value(0), "Show tavelquiston");
}

// Cancel during the countdown ends the start at the next second, writes nothing and leaves the
// coordinator ready for the next recording.
TEST_F(RecordingPanelFlow, CancelDuringCountdownLeavesNothing) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.countdown = 5;
    auto start = launch(launcher->start(configuration));
    drainEvents(clock);
    ASSERT_TRUE(waitForStatus("Rec in 5")) << shownStatus().toStdString();

    button("panelCancelButton")->click();
    EXPECT_FALSE(panelWindow().isVisible());
    clock.advance(1.0);
    ASSERT_TRUE(settle(start, clock));
    EXPECT_FALSE(start->value.value_or(true)) << "the launcher reported a recording";
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Idle>());
    EXPECT_FALSE(clock.isActive(TimerManager::TimerID::recordingCountdown));
    // The writer prepared for the recording is discarded, never finished.
    EXPECT_TRUE(log.contains("writer.cancel"));
    EXPECT_FALSE(log.contains("writer.finishWriting"));
    EXPECT_FALSE(panelWindow().isVisible());

    // The next start works as the first did.
    configuration.countdown = 0;
    auto again = launch(launcher->start(configuration));
    ASSERT_TRUE(settle(again, clock));
    EXPECT_EQ(again->errorText(), "");
    EXPECT_TRUE(coordinator->recordingState().isRecording());
    EXPECT_TRUE(waitForStatus("00:00"));
}

// A failed preparation shows one alert, hides the panel and returns to idle.
TEST_F(RecordingPanelFlow, FailedPreparationHidesThePanel) {
    freeSpace = 1024; // far below the minimum
    auto start = launch(launcher->start(screenConfiguration()));
    ASSERT_TRUE(settle(start, clock));
    EXPECT_FALSE(start->value.value_or(true));
    EXPECT_FALSE(panelWindow().isVisible());
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Idle>());
}

// A recording that failed (its writer broke) leaves the panel and tray, and the next start
// from the views records again.
TEST_F(RecordingPanelFlow, NextStartAfterAFailureRecords) {
    auto start = launch(launcher->start(screenConfiguration()));
    ASSERT_TRUE(settle(start, clock));
    ASSERT_TRUE(coordinator->recordingState().isRecording());
    factory.writer->failed = true;
    auto failing = launch(coordinator->handleMediaWriterFailureIfNeeded());
    ASSERT_TRUE(settle(failing, clock));
    ASSERT_TRUE(coordinator->recordingState().is<RecordingState::Failed>());
    EXPECT_FALSE(panelWindow().isVisible());
    EXPECT_FALSE(tray.isRecording());

    factory.writer->failed = false;
    auto again = launch(launcher->start(screenConfiguration()));
    ASSERT_TRUE(settle(again, clock));
    EXPECT_EQ(again->errorText(), "");
    EXPECT_TRUE(coordinator->recordingState().isRecording());
    EXPECT_TRUE(panelWindow().isVisible());
}

// The magnifier setting turns the magnifier on for the recording once it records, and the end
// of the recording turns it off; without the setting it stays off.
TEST_F(RecordingPanelFlow, TheMagnifierSettingLastsForTheRecording) {
    auto recordWithMagnifier = [&](bool wanted) {
        defaults->set("showMagnifier", wanted);
        factory.cursor->magnifier = false;
        auto start = launch(launcher->start(screenConfiguration()));
        ASSERT_TRUE(settle(start, clock));
        ASSERT_TRUE(coordinator->recordingState().isRecording());
        EXPECT_EQ(factory.cursor->magnifier, wanted);

        auto stop = launch(coordinator->stopRecording());
        ASSERT_TRUE(settle(stop, clock));
        EXPECT_FALSE(coordinator->recordingState().isActive());
        EXPECT_FALSE(factory.cursor->magnifier);
        // The result shows for a moment before the coordinator is idle again.
        clock.advance(0.2);
        drainEvents(clock);
        ASSERT_TRUE(coordinator->recordingState().is<RecordingState::Idle>());
    };
    recordWithMagnifier(true);
    recordWithMagnifier(false);
}

// The main window offers every mode and the devices the engines know; its choices are stored.
TEST_F(RecordingPanelFlow, MainWindowOffersModesAndDevices) {
    DeviceRecordingController recorder(*coordinator, opener, *defaults);
    MainWindow window(*coordinator, *launcher, recorder, factory, *defaults);
    window.show();
    EXPECT_EQ(window.windowTitle(), "tavelquiston");
    EXPECT_TRUE(window.windowFlags().testFlag(Qt::FramelessWindowHint));
    for (const char* mode : {"display", "area", "window", "windows", "application", "audio"})
        EXPECT_NE(window.findChild<QToolButton*>(QStringLiteral("modeTile_") + mode), nullptr)
            << mode;
    ASSERT_NE(window.findChild<QPushButton*>("recordButton"), nullptr);

    window.findChild<QToolButton*>("modeTile_area")->click();
    EXPECT_EQ(window.mode(), MainWindow::Mode::area);
    EXPECT_EQ(defaults->stringValue("lastRecordingMode", QString()), "area");

    auto* microphone = window.findChild<QToolButton*>("microphoneChip");
    ASSERT_NE(microphone, nullptr);
    ASSERT_NE(microphone->menu(), nullptr);
    EXPECT_TRUE(actionTexts(*microphone->menu()).contains("USB Mic"));
    auto* camera = window.findChild<QToolButton*>("cameraChip");
    EXPECT_TRUE(actionTexts(*camera->menu()).contains("Capture Card"));
    microphone->click();
    EXPECT_TRUE(defaults->boolValue("recordMicrophone"));
    EXPECT_TRUE(saveWidgetScreenshot(window, "main-window.png"));

    // A new window remembers the mode.
    MainWindow next(*coordinator, *launcher, recorder, factory, *defaults);
    EXPECT_EQ(next.mode(), MainWindow::Mode::area);
}
