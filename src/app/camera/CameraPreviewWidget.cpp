#include "app/camera/CameraPreviewWidget.h"

#include "media/VideoFrame.h"

#include <QMetaObject>
#include <QPainter>

namespace {
// A QImage over the frame's own pixels; the frame's reference keeps them alive as long as the
// image (and its copies) live. BGRA in memory is Format_ARGB32 on a little-endian machine.
QImage imageOf(const VideoFrame& frame) {
    auto* kept = new VideoFrame(frame);
    return QImage(
        kept->bytes(), kept->width(), kept->height(), kept->bytesPerRow(), QImage::Format_RGB32,
        [](void* info) { delete static_cast<VideoFrame*>(info); }, kept);
}
} // namespace

CameraPreviewWidget::CameraPreviewWidget(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
}

CameraPreviewWidget::~CameraPreviewWidget() = default;

void CameraPreviewWidget::offerFrame(const VideoFrame& frame) {
    {
        std::lock_guard lock(m_mutex);
        m_pending = std::make_unique<VideoFrame>(frame);
    }
    // One queued repaint at a time: a slow main thread sees the newest frame, not a backlog.
    if (!m_updateQueued.exchange(true))
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_updateQueued.store(false);
                update();
            },
            Qt::QueuedConnection);
}

void CameraPreviewWidget::setMirrored(bool mirrored) {
    m_mirrored = mirrored;
    update();
}

void CameraPreviewWidget::paintEvent(QPaintEvent*) {
    {
        std::lock_guard lock(m_mutex);
        if (m_pending) {
            m_image = imageOf(*m_pending);
            m_pending.reset();
        }
    }
    QPainter painter(this);
    painter.fillRect(rect(), QColor(0x1c, 0x1d, 0x21));
    if (m_image.isNull())
        return;
    // Aspect fill: scale to cover, centre, crop the rest.
    const QSizeF source = m_image.size();
    const double scale =
        std::max(double(width()) / source.width(), double(height()) / source.height());
    const QSizeF shown(width() / scale, height() / scale);
    const QRectF crop(
        QPointF((source.width() - shown.width()) / 2, (source.height() - shown.height()) / 2),
        shown);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (m_mirrored) {
        painter.translate(width(), 0);
        painter.scale(-1, 1);
    }
    painter.drawImage(QRectF(rect()), m_image, crop);
    m_hasPainted = true;
}
