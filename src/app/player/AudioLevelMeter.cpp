#include "app/player/AudioLevelMeter.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

AudioLevelMeter::AudioLevelMeter(QWidget* parent) : QWidget(parent) {
    setMinimumHeight(6);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void AudioLevelMeter::setLevel(float peak) {
    // Rises at once, falls over a few updates: a meter that drops to zero between blocks flickers.
    m_shown = std::max(std::clamp(peak, 0.0f, 1.0f), m_shown * 0.8f);
    update();
}

void AudioLevelMeter::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF track = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x34, 0x35, 0x3c));
    painter.drawRoundedRect(track, 3, 3);
    const double decibels = m_shown > 0 ? 20.0 * std::log10(m_shown) : -60.0;
    const double fraction = std::clamp((decibels + 60.0) / 60.0, 0.0, 1.0);
    if (fraction <= 0)
        return;
    QRectF filled = track;
    filled.setWidth(track.width() * fraction);
    // Near full scale the bar turns red: the mix is about to clip.
    painter.setBrush(decibels > -1.0 ? QColor(0xff, 0x4d, 0x5e) : QColor(0x5b, 0x8c, 0xff));
    painter.drawRoundedRect(filled, 3, 3);
}
