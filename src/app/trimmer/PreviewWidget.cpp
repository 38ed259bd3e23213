#include "app/trimmer/PreviewWidget.h"

#include "app/trimmer/TrimmerStyle.h"

#include <QPainter>

PreviewWidget::PreviewWidget(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(320, 180);
}

void PreviewWidget::setFrame(const QImage& frame) {
    m_frame = frame;
    update();
}

QRectF PreviewWidget::frameRect() const {
    if (m_frame.isNull())
        return {};
    const QRectF area =
        QRectF(rect()).adjusted(trimmer::grid, trimmer::grid, -trimmer::grid, -trimmer::grid);
    QSizeF size = QSizeF(m_frame.size()).scaled(area.size(), Qt::KeepAspectRatio);
    return {area.center().x() - size.width() / 2, area.center().y() - size.height() / 2,
            size.width(), size.height()};
}

void PreviewWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), trimmer::background);
    if (m_frame.isNull()) {
        painter.setPen(trimmer::secondaryText);
        painter.drawText(rect(), Qt::AlignCenter, tr("Loading…"));
        return;
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(frameRect(), m_frame);
}
