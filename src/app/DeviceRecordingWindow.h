#pragma once

#include "app/CardWindow.h"

class CameraPreviewWidget;
class QLabel;
class QPushButton;

// The preview of an attached device while it records: its live picture, its name, the running
// time and the sound being recorded with it, and the Stop button. It is the device recording's
// panel and stays out of the recorded picture, which comes from the device. Thread: main.
class DeviceRecordingWindow final : public CardWindow {
    Q_OBJECT
public:
    DeviceRecordingWindow(const QString& deviceName, const QString& soundDescription,
                          QWidget* parent = nullptr);

    // Where the engine's frames go (CameraPreviewWidget::offerFrame is thread-safe).
    CameraPreviewWidget* preview() const { return m_preview; }
    void setElapsedSeconds(double seconds);
    QString elapsedText() const;
    // After Stop, until the file is finished.
    void showFinishing();

signals:
    void stopRequested();

private:
    CameraPreviewWidget* m_preview = nullptr;
    QLabel* m_elapsed = nullptr;
    QPushButton* m_stop = nullptr;
};
