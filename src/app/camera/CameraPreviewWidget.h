#pragma once

#include <QImage>
#include <QWidget>

#include <atomic>
#include <memory>
#include <mutex>

class VideoFrame;

// Shows a camera's newest frame, filling the widget (cropped, never stretched), mirrored when
// asked. Frames come from the camera's capture thread through offerFrame, which only stores the
// frame and asks for one repaint; painting happens on the main thread. Thread: main, except
// offerFrame (any thread).
class CameraPreviewWidget final : public QWidget {
    Q_OBJECT
public:
    explicit CameraPreviewWidget(QWidget* parent = nullptr);
    ~CameraPreviewWidget() override;

    // Thread-safe; never blocks the caller for longer than a pointer swap.
    void offerFrame(const VideoFrame& frame);
    void setMirrored(bool mirrored);
    bool isMirrored() const { return m_mirrored; }
    // Whether a camera picture has been painted yet.
    bool hasPaintedFrame() const { return m_hasPainted; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::mutex m_mutex;                    // guards m_pending only
    std::unique_ptr<VideoFrame> m_pending; // the newest frame not yet painted
    std::atomic<bool> m_updateQueued{false};
    QImage m_image;
    bool m_mirrored = false;
    bool m_hasPainted = false;
};
