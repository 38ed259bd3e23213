#include "app/CountdownOverlay.h"

#include "app/AppStyle.h"

#include <QPainter>
#include <QPainterPath>

namespace {
constexpr int side = 168;
} // namespace

CountdownOverlay::CountdownOverlay()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus) {
    setObjectName(QStringLiteral("countdownOverlay"));
    setWindowTitle(QStringLiteral("Countdown"));
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFixedSize(side, side);
}

void CountdownOverlay::showCount(int seconds, const QRect& area) {
    m_count = seconds;
    move(area.center() - rect().center());
    update();
    if (!isVisible())
        show();
}

void CountdownOverlay::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath card;
    card.addRoundedRect(QRectF(rect()), 2 * AppStyle::windowRadius, 2 * AppStyle::windowRadius);
    QColor fill = AppStyle::background;
    fill.setAlphaF(0.82);
    painter.fillPath(card, fill);
    QFont font = painter.font();
    font.setPixelSize(96);
    font.setWeight(QFont::Bold);
    painter.setFont(font);
    painter.setPen(AppStyle::text);
    painter.drawText(rect(), Qt::AlignCenter, QString::number(m_count));
}
