#include "app/trimmer/SwatchButton.h"

#include "app/trimmer/TrimmerStyle.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <numbers>

SwatchButton::SwatchButton(std::vector<QColor> colors, double angle, const QString& name,
                           QWidget* parent)
    : QAbstractButton(parent), m_colors(std::move(colors)), m_angle(angle) {
    setCheckable(true);
    setToolTip(name);
    setAccessibleName(name);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(sizeHint());
}

void SwatchButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF outer = QRectF(rect()).adjusted(1, 1, -1, -1);
    const QRectF inner = outer.adjusted(4, 4, -4, -4);
    QBrush fill;
    if (m_colors.size() == 1) {
        fill = m_colors.front();
    } else if (!m_colors.empty()) {
        // The same direction as the export's background: a quarter turn before the angle,
        // counted with y upward.
        const double radians = (m_angle - 90.0) * std::numbers::pi / 180.0;
        const QPointF direction(std::cos(radians), -std::sin(radians));
        const QPointF centre = inner.center();
        const double reach = inner.width() / 2.0;
        QLinearGradient gradient(centre - direction * reach, centre + direction * reach);
        for (size_t i = 0; i < m_colors.size(); ++i)
            gradient.setColorAt(double(i) / double(m_colors.size() - 1), m_colors[i]);
        fill = gradient;
    }
    QPainterPath shape;
    shape.addRoundedRect(inner, trimmer::controlRadius, trimmer::controlRadius);
    painter.fillPath(shape, fill);
    painter.setPen(QPen(trimmer::hairline, 1));
    painter.drawPath(shape);
    if (isChecked() || underMouse()) {
        painter.setPen(QPen(isChecked() ? trimmer::accent : trimmer::secondaryText, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(outer, trimmer::controlRadius + 3, trimmer::controlRadius + 3);
    }
}
