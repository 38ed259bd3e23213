#pragma once

#include "core/model/CaptureSources.h"

#include <QObject>
#include <QPointer>
#include <QRect>

#include <memory>

class CameraPreviewWidget;
class V4L2CameraCaptureEngine;
class QWidget;

// The camera overlay while recording: a frameless, always-on-top tool window titled
// "Camera Overlayer" (the one own window the screen capture keeps), movable by dragging,
// resizable from its corner, showing its own camera preview. Its context menu flips the
// preview and closes the overlay.
// The camera is opened here unless a running engine is handed in, so the overlay and another
// preview can share one open device (V4L2 refuses a second streaming opener).
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
    // The same with a camera someone else opened and keeps; its frame handler is taken.
    bool showCameraOverlay(std::shared_ptr<V4L2CameraCaptureEngine> engine, QSize size,
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
    std::shared_ptr<V4L2CameraCaptureEngine> m_cameraEngine;
    std::unique_ptr<QWidget> m_window;
    QPointer<CameraPreviewWidget> m_preview;
    bool m_isFlipped = false;
};
