#include "app/trimmer/EditorPlaybackClock.h"

#include <cmath>

EditorPlaybackClock::EditorPlaybackClock(QObject* parent) : QObject(parent) {
    m_frameTimer.setTimerType(Qt::PreciseTimer);
    m_frameTimer.setInterval(frameIntervalMs);
    connect(&m_frameTimer, &QTimer::timeout, this, [this] {
        refreshFromPlayer(false);
        if (m_frameTimer.isActive())
            emit frameTicked();
    });
}

void EditorPlaybackClock::attach(std::function<double()> source) {
    detach();
    m_source = std::move(source);
    refreshFromPlayer(true);
}

void EditorPlaybackClock::detach() {
    m_frameTimer.stop();
    m_source = nullptr;
}

void EditorPlaybackClock::start() {
    if (m_source && !m_frameTimer.isActive())
        m_frameTimer.start();
}

void EditorPlaybackClock::stop() {
    if (!m_frameTimer.isActive())
        return;
    m_frameTimer.stop();
    refreshFromPlayer(true);
}

void EditorPlaybackClock::refreshFromPlayer(bool force) {
    if (m_source)
        publish(m_source(), force);
}

void EditorPlaybackClock::publish(double seconds, bool force) {
    if (!std::isfinite(seconds))
        return;
    seconds = std::max(seconds, 0.0);
    if (!force && std::abs(seconds - m_currentTime) < minimumChange)
        return;
    m_currentTime = seconds;
    emit currentTimeChanged(seconds);
}
