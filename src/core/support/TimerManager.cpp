#include "core/support/TimerManager.h"

#include "core/support/Log.h"

#include <QTimer>

TimerManager& TimerManager::shared() {
    static TimerManager manager;
    return manager;
}

TimerManager::TimerManager() = default;

TimerManager::~TimerManager() {
    std::lock_guard lock(m_lock);
    for (auto& [id, timer] : m_timers)
        delete timer;
}

void TimerManager::removeLocked(const QString& id) {
    auto it = m_timers.find(id);
    if (it == m_timers.end())
        return;
    it->second->stop();
    // The timer may be the one whose timeout is running right now.
    it->second->deleteLater();
    m_timers.erase(it);
}

void TimerManager::schedule(const QString& id, double interval, bool repeats,
                            std::function<void()> block) {
    std::lock_guard lock(m_lock);
    removeLocked(id);

    auto* timer = new QTimer;
    timer->setTimerType(Qt::PreciseTimer);
    timer->setSingleShot(!repeats);
    timer->setInterval(std::max(0, int(interval * 1000.0 + 0.5)));
    connect(timer, &QTimer::timeout, timer, std::move(block));
    m_timers.emplace(id, timer);
    timer->start();
    logLine("⏱️ Timer scheduled: {} (interval: {}s, repeats: {})", id.toStdString(),
            formatDouble(interval), repeats);
}

void TimerManager::scheduleOnce(const QString& id, double delay, std::function<void()> block) {
    schedule(id, delay, false, [this, id, block = std::move(block)] {
        {
            std::lock_guard lock(m_lock);
            removeLocked(id);
        }
        block();
    });
}

void TimerManager::invalidate(const QString& id) {
    std::lock_guard lock(m_lock);
    if (!m_timers.contains(id))
        return;
    removeLocked(id);
    logLine("⏱️ Timer invalidated: {}", id.toStdString());
}

void TimerManager::invalidateAll() {
    std::lock_guard lock(m_lock);
    const size_t count = m_timers.size();
    while (!m_timers.empty())
        removeLocked(m_timers.begin()->first);
    logLine("⏱️ All timers invalidated (count: {})", count);
}

bool TimerManager::isActive(const QString& id) const {
    std::lock_guard lock(m_lock);
    auto it = m_timers.find(id);
    return it != m_timers.end() && it->second->isActive();
}

int TimerManager::activeTimerCount() const {
    return int(activeTimerIDs().size());
}

QStringList TimerManager::activeTimerIDs() const {
    std::lock_guard lock(m_lock);
    QStringList ids;
    for (const auto& [id, timer] : m_timers) {
        if (timer->isActive())
            ids << id;
    }
    return ids;
}
