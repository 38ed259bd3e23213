#pragma once

class RecordingCoordinator;

// The small always-on-top panel with the recording's controls. Thread: main.
class FloatingRecordingPanelController {
public:
    virtual ~FloatingRecordingPanelController() = default;
    virtual void show(RecordingCoordinator& coordinator) = 0;
    virtual void hide() = 0;
    virtual void setPaused(bool paused) = 0;
    virtual void updateStartingCountdown(int seconds) = 0;
};
