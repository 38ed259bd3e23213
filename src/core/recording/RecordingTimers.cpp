#include "core/recording/RecordingTimers.h"

#include "core/recording/RecordingClock.h"
#include "core/support/Formatters.h"
#include "core/support/Log.h"
#include "core/support/TimerManager.h"

namespace {
QString timerID(const char* id) {
    return QString::fromLatin1(id);
}
} // namespace

void RecordingTimers::startDuration(std::function<void()> tick) {
    m_clock.schedule(timerID(TimerManager::TimerID::recordingDuration), 0.1, true, std::move(tick));
}

void RecordingTimers::stopDuration() {
    m_clock.invalidate(timerID(TimerManager::TimerID::recordingDuration));
}

void RecordingTimers::startAutoStop(int minutes, std::function<void()> fire) {
    if (minutes <= 0) {
        logLine("⏱️ No auto-stop timer configured (unlimited recording)");
        return;
    }
    logLine("⏱️ Auto-stop timer configured: {} minute(s)", minutes);
    const double seconds = minutes * 60.0;
    logLine("⏱️ Starting auto-stop timer for {} minute(s) ({} seconds)", minutes,
            formatDouble(seconds));
    m_clock.schedule(timerID(TimerManager::TimerID::recordingAutoStop), seconds, false,
                     [fire = std::move(fire)] {
                         logLine("⏱️ Auto-stop timer fired! Stopping recording...");
                         fire();
                     });
}

void RecordingTimers::invalidateAll() {
    for (const char* id :
         {TimerManager::TimerID::recordingDuration, TimerManager::TimerID::recordingAutoStop,
          TimerManager::TimerID::cursorSampling, TimerManager::TimerID::recordingCountdown})
        m_clock.invalidate(timerID(id));
}
