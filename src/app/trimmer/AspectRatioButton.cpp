#include "app/trimmer/AspectRatioButton.h"

#include "app/trimmer/TrimmerStyle.h"

#include <QPainter>

AspectRatioButton::AspectRatioButton(const QString& name, double ratio, QWidget* parent)
    : QAbstractButton(parent), m_ratio(ratio) {
    setText(name);
    setCheckable(true);
    setToolTip(ratio > 0 ? tr("Export at %1").arg(name) : tr("Keep the recording's own shape"));
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    // As wide as the row allows, as high as the frame and its name need.
    setMinimumSize(sizeHint());
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void AspectRatioButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF cell = QRectF(rect()).adjusted(1, 1, -1, -1);
    if (isChecked())
        painter.fillRect(cell, QColor(0x2f, 0x3b, 0x5c));
    painter.setPen(QPen(isChecked() ? trimmer::accent : trimmer::hairline, 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(cell, trimmer::controlRadius, trimmer::controlRadius);

    // The frame fits a 28-pixel box above the name.
    const double ratio = m_ratio > 0 ? m_ratio : 16.0 / 10.0;
    const double box = 26.0;
    const QSizeF size = ratio >= 1 ? QSizeF(box, box / ratio) : QSizeF(box * ratio, box);
    const QRectF frame(
        QPointF(cell.center().x() - size.width() / 2.0, 6 + (box - size.height()) / 2), size);
    QPen outline(isChecked() || underMouse() ? trimmer::text : trimmer::secondaryText, 1.5);
    if (m_ratio <= 0)
        outline.setStyle(Qt::DashLine);
    painter.setPen(outline);
    painter.drawRoundedRect(frame, 2, 2);

    QFont font = painter.font();
    font.setPixelSize(11);
    painter.setFont(font);
    painter.setPen(isChecked() ? trimmer::text : trimmer::secondaryText);
    painter.drawText(QRectF(cell.left(), cell.bottom() - 20, cell.width(), 18), Qt::AlignCenter,
                     text());
}
