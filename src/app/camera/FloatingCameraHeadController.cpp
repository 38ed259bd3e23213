#include "app/camera/FloatingCameraHeadController.h"

#include "app/camera/CameraPreviewSource.h"
#include "app/camera/CameraPreviewWidget.h"
#include "core/model/Constants.h"
#include "core/recording/ErrorDescription.h"
#include "core/settings/UserDefaults.h"
#include "core/support/Log.h"
#include "platform/v4l2/V4L2CameraDiscovery.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QRegion>
#include <QScreen>
#include <QToolButton>

namespace {

using Constants::UserDefaultsKey::recordCamera;
constexpr std::string_view cameraFlipped = "cameraFlipped";

// The round window: dragged from anywhere, its two buttons along the lower edge.
class BubbleWindow final : public QWidget {
public:
    BubbleWindow()
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint) {
        setWindowTitle(QStringLiteral("Camera"));
        const int size = FloatingCameraHeadController::panelSize;
        setFixedSize(size, size);
        setMask(QRegion(rect(), QRegion::Ellipse));
        setCursor(Qt::OpenHandCursor);
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

private:
    std::optional<QPoint> m_grabOffset;
};

QToolButton* roundButton(QWidget* parent, const QString& text, const QString& help) {
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(help);
    button->setFixedSize(28, 28);
    button->setCursor(Qt::PointingHandCursor);
    button->setStyleSheet(QStringLiteral(
        "QToolButton { background: rgba(28, 29, 33, 200); color: #ecedf0; border: none;"
        " border-radius: 14px; font-size: 13px; }"
        "QToolButton:hover { background: #5b8cff; }"));
    return button;
}

} // namespace

FloatingCameraHeadController::FloatingCameraHeadController(UserDefaults& defaults, QObject* parent)
    : QObject(parent), m_defaults(defaults) {}

FloatingCameraHeadController::~FloatingCameraHeadController() {
    hide();
}

QPoint FloatingCameraHeadController::placement(const QWidget* referenceWindow, int gap) {
    if (referenceWindow) {
        const QRect frame = referenceWindow->frameGeometry();
        return QPoint(frame.center().x() + 1 - panelSize / 2, frame.top() - gap - panelSize);
    }
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        return QPoint(area.center().x() + 1 - panelSize / 2, area.bottom() + 1 - 60 - panelSize);
    }
    return QPoint(100, 300);
}

std::optional<AVCaptureDevice>
FloatingCameraHeadController::findCamera(const QString& deviceName) const {
    const auto cameras = V4L2CameraDiscovery::discoverCameras();
    for (const CameraDeviceInfo& camera : cameras) {
        if (camera.name == deviceName)
            return camera.captureDevice();
    }
    if (cameras.empty())
        return std::nullopt;
    return cameras.front().captureDevice();
}

bool FloatingCameraHeadController::show(const QString& deviceName, QWidget* referenceWindow) {
    if (m_window) {
        updatePosition(referenceWindow);
        return true;
    }
    const auto camera = findCamera(deviceName);
    if (!camera) {
        logLine("⚠️ FloatingCameraHead: No camera found");
        return false;
    }
    try {
        setupAndShow(CameraPreviewSource::acquire(*camera), referenceWindow);
    } catch (const std::exception& error) {
        logLine("⚠️ FloatingCameraHead: Failed to create input - {}", describeError(error));
        return false;
    }
    return true;
}

void FloatingCameraHeadController::setupAndShow(std::shared_ptr<CameraPreviewSource> source,
                                                QWidget* referenceWindow) {
    m_source = std::move(source);
    m_window = std::make_unique<BubbleWindow>();
    m_preview = new CameraPreviewWidget(m_window.get());
    m_preview->setGeometry(m_window->rect());
    m_preview->setMirrored(m_defaults.boolValue(cameraFlipped, false));
    m_preview->setAttribute(Qt::WA_TransparentForMouseEvents);

    QToolButton* flip =
        roundButton(m_window.get(), QStringLiteral("⇆"), QStringLiteral("Flip camera"));
    QToolButton* close =
        roundButton(m_window.get(), QStringLiteral("✕"), QStringLiteral("Turn off camera"));
    flip->move(panelSize / 2 - 32, panelSize - 40);
    close->move(panelSize / 2 + 4, panelSize - 40);
    connect(flip, &QToolButton::clicked, this, [this] { toggleFlip(); });
    // Queued: the button's window goes away with the bubble.
    connect(
        close, &QToolButton::clicked, this, [this] { turnOff(); }, Qt::QueuedConnection);

    const QPoint origin = placement(referenceWindow, 16);
    m_window->move(origin);
    m_source->addPreview(m_preview);
    m_window->show();
    logLine("✅ FloatingCameraHead: Window created at ({}, {})", origin.x(), origin.y());
    logLine("✅ FloatingCameraHead: Session started");
}

void FloatingCameraHeadController::updatePosition(QWidget* referenceWindow) {
    if (m_window && referenceWindow)
        m_window->move(placement(referenceWindow, 12));
}

bool FloatingCameraHeadController::switchCamera(const QString& deviceName) {
    if (!m_window)
        return false;
    const auto camera = findCamera(deviceName);
    if (!camera || (m_source && m_source->device() == *camera))
        return camera.has_value();
    try {
        // The new device opens before the old one is let go, so a failure leaves the bubble as
        // it was.
        std::shared_ptr<CameraPreviewSource> next = CameraPreviewSource::acquire(*camera);
        m_source->removePreview(m_preview);
        m_source = std::move(next);
        m_source->addPreview(m_preview);
    } catch (const std::exception& error) {
        logLine("⚠️ FloatingCameraHead: Failed to switch camera - {}", describeError(error));
        return false;
    }
    logLine("✅ FloatingCameraHead: Switched to {}", camera->localizedName.toStdString());
    return true;
}

void FloatingCameraHeadController::hide() {
    if (!m_window)
        return;
    if (m_source && m_preview)
        m_source->removePreview(m_preview);
    m_window.reset();
    // The device closes here unless the overlay still shows it.
    m_source.reset();
    logLine("📷 FloatingCameraHead: Session stopped");
}

bool FloatingCameraHeadController::isShowing() const {
    return m_window && m_window->isVisible();
}

bool FloatingCameraHeadController::hasShownFrame() const {
    return m_preview && m_preview->hasPaintedFrame();
}

QWidget* FloatingCameraHeadController::window() const {
    return m_window.get();
}

void FloatingCameraHeadController::toggleFlip() {
    const bool flipped = !m_defaults.boolValue(cameraFlipped, false);
    m_defaults.set(cameraFlipped, flipped);
    if (m_preview)
        m_preview->setMirrored(flipped);
}

void FloatingCameraHeadController::turnOff() {
    m_defaults.set(recordCamera, false);
    hide();
}
