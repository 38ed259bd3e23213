#include "core/recording/RecordingTimekeeper.h"

#include <algorithm>
#include <cmath>

namespace {
double secondsBetween(const QDateTime& from, const QDateTime& to) {
    return double(from.msecsTo(to)) / 1000.0;
}
} // namespace

void RecordingTimekeeper::begin(const QDateTime& now) {
    reset();
    m_startTime = now;
}

void RecordingTimekeeper::reset() {
    m_startTime.reset();
    m_elapsedBeforePause = 0.0;
    m_timeOffset = 0.0;
    m_streamInterruptStartTime.reset();
}

double RecordingTimekeeper::recordedSeconds(const QDateTime& stateStartTime,
                                            const QDateTime& now) const {
    return secondsBetween(stateStartTime, now) - m_timeOffset;
}

double RecordingTimekeeper::pause(const QDateTime& stateStartTime, const QDateTime& now) {
    m_elapsedBeforePause = recordedSeconds(stateStartTime, now);
    return m_elapsedBeforePause;
}

RecordingTimekeeper::Resumption RecordingTimekeeper::resume(const QDateTime& pauseTime,
                                                            double elapsed, const QDateTime& now) {
    const double pauseDuration = secondsBetween(pauseTime, now);
    m_timeOffset += pauseDuration;
    const QDateTime start = now.addMSecs(-std::llround((elapsed + m_timeOffset) * 1000.0));
    return {pauseDuration, start};
}

std::optional<double> RecordingTimekeeper::currentRecordingTimestamp(const RecordingState& state,
                                                                     const QDateTime& now) const {
    if (const auto* recording = state.as<RecordingState::Recording>()) {
        double seconds = recordedSeconds(recording->startTime, now);
        if (m_streamInterruptStartTime)
            seconds -= secondsBetween(*m_streamInterruptStartTime, now);
        return std::max(seconds, 0.0);
    }
    if (const auto* paused = state.as<RecordingState::Paused>())
        return paused->elapsed;
    return std::nullopt;
}
