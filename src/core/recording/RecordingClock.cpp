#include "core/recording/RecordingClock.h"

#include "core/support/TimerManager.h"

#include <QCoro/QCoroTimer>

#include <chrono>

SystemRecordingClock& SystemRecordingClock::shared() {
    static SystemRecordingClock clock;
    return clock;
}

QDateTime SystemRecordingClock::now() const {
    return QDateTime::currentDateTime();
}

uint64_t SystemRecordingClock::monotonicNanoseconds() const {
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
}

void SystemRecordingClock::schedule(const QString& id, double interval, bool repeats,
                                    std::function<void()> block) {
    TimerManager::shared().schedule(id, interval, repeats, std::move(block));
}

void SystemRecordingClock::invalidate(const QString& id) {
    TimerManager::shared().invalidate(id);
}

bool SystemRecordingClock::isActive(const QString& id) const {
    return TimerManager::shared().isActive(id);
}

QCoro::Task<void> SystemRecordingClock::sleep(double seconds) {
    co_await QCoro::sleepFor(std::chrono::milliseconds(std::llround(seconds * 1000.0)));
}
