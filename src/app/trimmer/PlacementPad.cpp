#include "app/trimmer/PlacementPad.h"

#include "app/trimmer/TrimmerStyle.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

PlacementPad::PlacementPad(QWidget* parent) : QWidget(parent) {
    setMinimumHeight(sizeHint().height());
    setCursor(Qt::OpenHandCursor);
    setToolTip(tr("Drag to place it"));
}

void PlacementPad::setPlacement(const CameraExportSettings& placement) {
    if (m_placement == placement)
        return;
    m_placement = placement;
    update();
}

void PlacementPad::setMarkerAspect(double widthOverHeight) {
    m_markerAspect = widthOverHeight > 0 ? widthOverHeight : 1.0;
    update();
}

QRectF PlacementPad::canvasRect() const {
    // A 16:9 output centred in the pad.
    const QRectF area = QRectF(rect()).adjusted(1, 1, -1, -1);
    QSizeF size(area.width(), area.width() * 9.0 / 16.0);
    if (size.height() > area.height())
        size = QSizeF(area.height() * 16.0 / 9.0, area.height());
    return QRectF(area.center() - QPointF(size.width(), size.height()) / 2.0, size);
}

Point PlacementPad::normalizedAt(QPointF point) const {
    const QRectF canvas = canvasRect();
    return {std::clamp((point.x() - canvas.left()) / canvas.width(), 0.0, 1.0),
            std::clamp((point.y() - canvas.top()) / canvas.height(), 0.0, 1.0)};
}

void PlacementPad::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF canvas = canvasRect();
    painter.setPen(QPen(trimmer::hairline, 1));
    painter.setBrush(trimmer::raised);
    painter.drawRoundedRect(canvas, trimmer::controlRadius, trimmer::controlRadius);
    // The screen, inset as padding would put it.
    painter.setBrush(trimmer::hairline);
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(canvas.adjusted(canvas.width() * 0.08, canvas.height() * 0.1,
                                            -canvas.width() * 0.08, -canvas.height() * 0.1),
                            3, 3);

    const double side = std::max(8.0, canvas.width() * m_placement.widthFraction);
    const QPointF centre(canvas.left() + m_placement.centerNormalized.x * canvas.width(),
                         canvas.top() + m_placement.centerNormalized.y * canvas.height());
    const QSizeF size(side, side / m_markerAspect);
    const QRectF camera(centre - QPointF(size.width(), size.height()) / 2.0, size);
    QPainterPath shape;
    switch (m_placement.shape) {
    case CameraShape::circle:
        shape.addEllipse(camera);
        break;
    case CameraShape::squircle:
        shape.addRoundedRect(camera, side * 0.3, side * 0.3);
        break;
    case CameraShape::roundedRect:
        shape.addRoundedRect(camera, side * 0.15, side * 0.15);
        break;
    case CameraShape::rectangle:
        shape.addRect(camera);
        break;
    }
    painter.setBrush(isEnabled() ? trimmer::accent : trimmer::secondaryText);
    painter.setPen(QPen(trimmer::text, 1.5));
    painter.drawPath(shape);
}

void PlacementPad::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    emit dragStarted();
    emit moved(normalizedAt(event->position()));
}

void PlacementPad::mouseMoveEvent(QMouseEvent* event) {
    if (event->buttons() & Qt::LeftButton)
        emit moved(normalizedAt(event->position()));
}
