#pragma once

#include "core/model/CaptureSources.h"

#include <QObject>
#include <QPoint>
#include <QPointer>

#include <memory>

class CameraPreviewSource;
class CameraPreviewWidget;
class UserDefaults;
class QWidget;

// The round camera bubble shown above the recording controls before a recording: a 160x160
// frameless, always-on-top tool window, movable by dragging, with its own preview, a flip
// button (persisted as "cameraFlipped") and a close button (turns "recordCamera" off). It shares
// the open device with the overlay through CameraPreviewSource.
// Thread: main.
class FloatingCameraHeadController final : public QObject {
    Q_OBJECT
public:
    static constexpr int panelSize = 160;

    explicit FloatingCameraHeadController(UserDefaults& defaults, QObject* parent = nullptr);
    ~FloatingCameraHeadController() override;

    // Shows the named camera ("default" or an unknown name: the first listed) above
    // `referenceWindow` (or near the bottom of the primary screen); when already showing, only
    // moves. Returns whether the bubble is showing.
    bool show(const QString& deviceName, QWidget* referenceWindow);
    void updatePosition(QWidget* referenceWindow);
    bool switchCamera(const QString& deviceName);
    void hide();

    bool isShowing() const;
    bool hasShownFrame() const;
    QWidget* window() const;
    void toggleFlip();
    void turnOff();

    // Where the bubble's top-left corner goes: centred above the reference window, else near
    // the bottom of the screen's area, else at (100, 300). `gap` is 16 when the bubble is made
    // and 12 when it follows the window later.
    static QPoint placement(const QWidget* referenceWindow, int gap);

private:
    std::optional<AVCaptureDevice> findCamera(const QString& deviceName) const;
    void setupAndShow(std::shared_ptr<CameraPreviewSource> source, QWidget* referenceWindow);

    UserDefaults& m_defaults;
    std::shared_ptr<CameraPreviewSource> m_source;
    std::unique_ptr<QWidget> m_window;
    QPointer<CameraPreviewWidget> m_preview;
};
