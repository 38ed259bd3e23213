#pragma once

#include "core/model/CaptureSources.h"

#include <QObject>
#include <QPointer>
#include <QRect>

#include <memory>

class CameraPreviewSource;
class CameraPreviewWidget;
class QWidget;

// The camera overlay while recording: a frameless, always-on-top tool window titled
// "Camera Overlayer" (the one own window the screen capture keeps), movable by dragging,
// resizable from its corner, showing its own camera preview. Its context menu flips the
// preview and closes the overlay.
// The camera comes through CameraPreviewSource, so the overlay and the bubble showing the same
// device share one open device (V4L2 refuses a second streaming opener).
// Thread: main.
class CameraOverlayWindowController final : public QObject {
    Q_OBJECT
public:
    enum class Position { topLeft, topRight, bottomLeft, bottomRight, center };

    explicit CameraOverlayWindowController(QObject* parent = nullptr);
    ~CameraOverlayWindowController() override;

    // Opens the device and shows the window at `position` of the primary screen. Failures are
    // logged ("Failed to setup camera: ..."); returns whether the window is shown.
    bool showCameraOverlay(const AVCaptureDevice& device, QSize size, Position position);
    bool showCameraOverlay(std::shared_ptr<CameraPreviewSource> source, QSize size,
                           Position position);
    void closeCameraOverlay();

    bool isVisible() const;
    bool isFlipped() const { return m_isFlipped; }
    void setFlipped(bool flipped);
    // Whether the preview has painted a camera picture yet.
    bool hasShownFrame() const;
    QWidget* window() const;

    // Where a window of `size` goes on a screen's available area.
    static QRect placement(QRect available, QSize size, Position position);

signals:
    void isFlippedChanged(bool flipped);

private:
    std::shared_ptr<CameraPreviewSource> m_cameraSource;
    std::unique_ptr<QWidget> m_window;
    QPointer<CameraPreviewWidget> m_preview;
    bool m_isFlipped = false;
};
