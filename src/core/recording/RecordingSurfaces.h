#pragma once

#include <QString>

class FloatingRecordingPanelController;
class RecordingCoordinator;
class SleepPreventer;
class StatusBarController;

// What a person sees of a running recording, the tray controls and the floating panel, and
// the machine kept awake meanwhile. None of the three is owned here. Thread: main.
class RecordingSurfaces {
public:
    RecordingSurfaces(StatusBarController& statusBar, FloatingRecordingPanelController& panel,
                      SleepPreventer& sleepPreventer)
        : m_statusBar(statusBar), m_panel(panel), m_sleepPreventer(sleepPreventer) {}

    // The controls follow `coordinator` from here until hide().
    void showRecording(RecordingCoordinator& coordinator);
    void showCountdown(int remaining);
    void showDuration(const QString& formattedDuration);
    void showPaused(bool paused);
    void preventSleep();
    // Controls hidden; sleep allowed again when preventSleep() held it off.
    void hide(bool allowSleep);

private:
    StatusBarController& m_statusBar;
    FloatingRecordingPanelController& m_panel;
    SleepPreventer& m_sleepPreventer;
};
