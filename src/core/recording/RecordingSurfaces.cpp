#include "core/recording/RecordingSurfaces.h"

#include "core/recording/surfaces/FloatingRecordingPanelController.h"
#include "core/recording/surfaces/StatusBarController.h"
#include "core/support/SleepPreventer.h"

void RecordingSurfaces::showRecording(RecordingCoordinator& coordinator) {
    m_statusBar.showRecordingControls(coordinator);
    m_panel.show(coordinator);
}

void RecordingSurfaces::showCountdown(int remaining) {
    m_panel.updateStartingCountdown(remaining);
}

void RecordingSurfaces::showDuration(const QString& formattedDuration) {
    m_statusBar.updateDuration(formattedDuration);
}

void RecordingSurfaces::showPaused(bool paused) {
    m_statusBar.updatePauseState(paused);
    m_panel.setPaused(paused);
}

void RecordingSurfaces::preventSleep() {
    m_sleepPreventer.preventSleep(QStringLiteral("Screen recording in progress"));
}

void RecordingSurfaces::hide(bool allowSleep) {
    if (allowSleep)
        m_sleepPreventer.allowSleep();
    m_statusBar.hideRecordingControls();
    m_panel.hide();
}
