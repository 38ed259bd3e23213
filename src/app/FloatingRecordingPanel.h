#pragma once

#include "core/recording/surfaces/FloatingRecordingPanelController.h"

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QTimer>

#include <memory>
#include <optional>

class CountdownOverlay;
class QLabel;
class QPushButton;
class RecordingPanelWidget;

// The small always-on-top pill that controls a recording: "Starting..." or "Rec in N" with
// Cancel while the start runs, then the running time with Pause/Resume and Stop Recording. It
// keeps the place it was dragged to for the rest of the run. Thread: main.
class FloatingRecordingPanel final : public QObject, public FloatingRecordingPanelController {
    Q_OBJECT
public:
    explicit FloatingRecordingPanel(QObject* parent = nullptr);
    ~FloatingRecordingPanel() override;

    // FloatingRecordingPanelController
    void show(RecordingCoordinator& coordinator) override;
    void hide() override;
    void setPaused(bool paused) override;
    void updateStartingCountdown(int seconds) override;

    void showStarting(RecordingCoordinator& coordinator);
    // Builds the window ahead of the first recording so that showing it costs nothing.
    void prewarmPanel();
    void storePosition(QPoint topLeft) { m_storedPosition = topLeft; }

    void stopRecording();
    void cancelPreparation();
    void togglePause();

    bool isVisible() const { return m_isVisible; }
    bool isStarting() const { return m_isStarting; }
    bool isRecording() const { return m_isRecording; }
    bool isPaused() const { return m_isPaused; }
    int startingCountdown() const { return m_startingCountdown; }
    double recordingDuration() const { return m_recordingDuration; }
    // The text the pill shows now: "Starting...", "Rec in 3" or "01:05".
    QString statusText() const;
    QWidget* window() const;
    CountdownOverlay* countdownOverlay() const { return m_countdown.get(); }

signals:
    // The person cancelled the start from the panel.
    void preparationCancelled();

private:
    void createPanel();
    void positionPanel();
    void present();
    void refresh();
    void startDurationTimer();
    void stopDurationTimer();
    void hideCountdown();
    // Where the recording will be, on the desktop: the countdown's place.
    QRect recordedArea() const;

    std::unique_ptr<RecordingPanelWidget> m_panel;
    std::unique_ptr<CountdownOverlay> m_countdown;
    QPointer<RecordingCoordinator> m_coordinator;
    QTimer m_durationTimer;
    std::optional<QPoint> m_storedPosition;
    bool m_isVisible = false;
    bool m_isStarting = false;
    bool m_isRecording = false;
    bool m_isPaused = false;
    int m_startingCountdown = 0;
    double m_recordingDuration = 0.0;
};
