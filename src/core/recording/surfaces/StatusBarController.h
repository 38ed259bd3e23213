#pragma once

#include <QString>

class RecordingCoordinator;

// The recording controls in the tray. Thread: main.
class StatusBarController {
public:
    virtual ~StatusBarController() = default;
    virtual void showRecordingControls(RecordingCoordinator& coordinator) = 0;
    virtual void hideRecordingControls() = 0;
    virtual void updateDuration(const QString& formattedDuration) = 0;
    virtual void updatePauseState(bool paused) = 0;
};
