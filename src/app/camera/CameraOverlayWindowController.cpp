#include "app/camera/CameraOverlayWindowController.h"

#include "app/camera/CameraPreviewSource.h"
#include "app/camera/CameraPreviewWidget.h"
#include "core/model/Constants.h"
#include "core/recording/ErrorDescription.h"
#include "core/support/Log.h"

#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QMouseEvent>
#include <QScreen>
#include <QSizeGrip>
#include <QVBoxLayout>

namespace {

constexpr int screenMargin = 24;

// The overlay's window: dragged by anywhere inside, resized by the grip in its corner.
class OverlayWindow final : public QWidget {
public:
    explicit OverlayWindow(CameraOverlayWindowController& controller)
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
          m_controller(controller) {
        setWindowTitle(QString::fromUtf8(Constants::WindowTitle::cameraOverlay.data(),
                                         qsizetype(Constants::WindowTitle::cameraOverlay.size())));
        setMinimumSize(96, 64);
        setCursor(Qt::OpenHandCursor);
        m_grip = new QSizeGrip(this);
        m_grip->resize(16, 16);
    }

protected:
    void mousePressEvent(QMouseEvent* event) override {
        if (event->button() == Qt::LeftButton)
            m_grabOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
    }
    void mouseMoveEvent(QMouseEvent* event) override {
        if (m_grabOffset && (event->buttons() & Qt::LeftButton))
            move(event->globalPosition().toPoint() - *m_grabOffset);
    }
    void mouseReleaseEvent(QMouseEvent*) override { m_grabOffset.reset(); }
    void resizeEvent(QResizeEvent*) override {
        m_grip->move(width() - m_grip->width(), height() - m_grip->height());
        m_grip->raise();
    }
    void contextMenuEvent(QContextMenuEvent* event) override {
        QMenu menu(this);
        QAction* flip = menu.addAction(QStringLiteral("Flip camera horizontally"));
        flip->setCheckable(true);
        flip->setChecked(m_controller.isFlipped());
        QAction* close = menu.addAction(QStringLiteral("Close camera overlay"));
        QAction* chosen = menu.exec(event->globalPos());
        if (chosen == flip)
            m_controller.setFlipped(!m_controller.isFlipped());
        else if (chosen == close)
            QMetaObject::invokeMethod(
                &m_controller, [c = &m_controller] { c->closeCameraOverlay(); },
                Qt::QueuedConnection);
    }

private:
    CameraOverlayWindowController& m_controller;
    std::optional<QPoint> m_grabOffset;
    QSizeGrip* m_grip = nullptr; // over the preview's bottom-right corner
};

} // namespace

CameraOverlayWindowController::CameraOverlayWindowController(QObject* parent) : QObject(parent) {}

CameraOverlayWindowController::~CameraOverlayWindowController() {
    closeCameraOverlay();
}

QRect CameraOverlayWindowController::placement(QRect available, QSize size, Position position) {
    const int left = available.left() + screenMargin;
    const int right = available.right() + 1 - screenMargin - size.width();
    const int top = available.top() + screenMargin;
    const int bottom = available.bottom() + 1 - screenMargin - size.height();
    switch (position) {
    case Position::topLeft:
        return QRect(QPoint(left, top), size);
    case Position::topRight:
        return QRect(QPoint(right, top), size);
    case Position::bottomLeft:
        return QRect(QPoint(left, bottom), size);
    case Position::bottomRight:
        return QRect(QPoint(right, bottom), size);
    case Position::center:
        break;
    }
    return QRect(QPoint(available.left() + (available.width() - size.width()) / 2,
                        available.top() + (available.height() - size.height()) / 2),
                 size);
}

bool CameraOverlayWindowController::showCameraOverlay(const AVCaptureDevice& device, QSize size,
                                                      Position position) {
    std::shared_ptr<CameraPreviewSource> source;
    try {
        source = CameraPreviewSource::acquire(device);
    } catch (const std::exception& error) {
        logLine("Failed to setup camera: {}", describeError(error));
        return false;
    }
    return showCameraOverlay(std::move(source), size, position);
}

bool CameraOverlayWindowController::showCameraOverlay(std::shared_ptr<CameraPreviewSource> source,
                                                      QSize size, Position position) {
    closeCameraOverlay();
    m_cameraSource = std::move(source);

    m_window = std::make_unique<OverlayWindow>(*this);
    auto* layout = new QVBoxLayout(m_window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    m_preview = new CameraPreviewWidget(m_window.get());
    m_preview->setMirrored(m_isFlipped);
    layout->addWidget(m_preview);

    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 720);
    m_window->setGeometry(placement(available, size, position));
    m_cameraSource->addPreview(m_preview);
    m_window->show();
    m_window->raise();
    logLine("Camera overlay window shown");
    return true;
}

void CameraOverlayWindowController::closeCameraOverlay() {
    if (!m_window && !m_cameraSource)
        return;
    // The preview leaves the camera before its window goes; the camera closes with its last
    // preview.
    if (m_cameraSource && m_preview)
        m_cameraSource->removePreview(m_preview);
    m_cameraSource.reset();
    m_window.reset();
    logLine("Camera overlay window closed");
}

bool CameraOverlayWindowController::isVisible() const {
    return m_window && m_window->isVisible();
}

void CameraOverlayWindowController::setFlipped(bool flipped) {
    if (m_isFlipped == flipped)
        return;
    m_isFlipped = flipped;
    if (m_preview)
        m_preview->setMirrored(flipped);
    emit isFlippedChanged(flipped);
}

bool CameraOverlayWindowController::hasShownFrame() const {
    return m_preview && m_preview->hasPaintedFrame();
}

QWidget* CameraOverlayWindowController::window() const {
    return m_window.get();
}
