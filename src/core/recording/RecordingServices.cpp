#include "core/recording/RecordingServices.h"

#include "core/support/SystemEventMonitor.h"

#include "core/recording/RecordingClock.h"
#include "core/recording/RecordingStartupProfiler.h"
#include "core/recording/surfaces/CursorHider.h"
#include "core/recording/surfaces/FloatingRecordingPanelController.h"
#include "core/recording/surfaces/RecordingResultOpener.h"
#include "core/recording/surfaces/StatusBarController.h"
#include "core/settings/UserDefaults.h"
#include "core/support/KeyboardShortcutHandler.h"
#include "core/support/NotificationManager.h"
#include "core/support/SleepPreventer.h"

#include <QFileInfo>

namespace {
// Stand-ins for surfaces a program doesn't have (the command line shows no tray or panel).
class NoStatusBar final : public StatusBarController {
public:
    void showRecordingControls(RecordingCoordinator&) override {}
    void hideRecordingControls() override {}
    void updateDuration(const QString&) override {}
    void updatePauseState(bool) override {}
};
class NoPanel final : public FloatingRecordingPanelController {
public:
    void show(RecordingCoordinator&) override {}
    void hide() override {}
    void setPaused(bool) override {}
    void updateStartingCountdown(int) override {}
};
class NoResultOpener final : public RecordingResultOpener {
public:
    void openTrimmer(const QString&) override {}
    void openURL(const QString&) override {}
    void activateFileViewerSelecting(const QString&) override {}
};
class NoCursorHider final : public CursorHider {
public:
    void hideCursor() override {}
    void showCursor() override {}
};

} // namespace

RecordingServices RecordingServices::withFallbacks(RecordingServices services) {
    static NoStatusBar noStatusBar;
    static NoPanel noPanel;
    static NoResultOpener noResultOpener;
    static NoCursorHider noCursorHider;
    if (!services.clock)
        services.clock = &SystemRecordingClock::shared();
    if (!services.defaults)
        services.defaults = &UserDefaults::standard();
    if (!services.sleepPreventer)
        services.sleepPreventer = &SleepPreventer::shared();
    if (!services.shortcuts)
        services.shortcuts = &KeyboardShortcutHandler::shared();
    if (!services.notifications)
        services.notifications = &NotificationManager::shared();
    if (!services.statusBar)
        services.statusBar = &noStatusBar;
    if (!services.panel)
        services.panel = &noPanel;
    if (!services.resultOpener)
        services.resultOpener = &noResultOpener;
    if (!services.cursorHider)
        services.cursorHider = &noCursorHider;
    if (!services.systemEvents)
        services.systemEvents = &SystemEventMonitor::shared();
    if (!services.availableDiskSpace)
        services.availableDiskSpace = &RecordingValidator::availableSpaceOnVolumeOf;
    if (!services.startupLogDirectory)
        services.startupLogDirectory = RecordingStartupProfiler::defaultLogDirectory();
    return services;
}
