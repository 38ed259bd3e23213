#pragma once

#include "core/model/RecordingState.h"

#include <QDateTime>

#include <optional>

// Accounts a recording's time: when it started, what was recorded up to the last pause, and
// how much time pauses and stream outages took out. Times are wall-clock dates at millisecond
// resolution. Thread: main.
class RecordingTimekeeper {
public:
    struct Resumption {
        double pauseDuration = 0.0;
        QDateTime stateStartTime; // the start a recording state shows after the resume
    };

    void begin(const QDateTime& now);
    void reset();

    // Recorded seconds at `now` of a recording state that started at `stateStartTime`.
    double recordedSeconds(const QDateTime& stateStartTime, const QDateTime& now) const;
    // Stores and returns the recorded time at the pause.
    double pause(const QDateTime& stateStartTime, const QDateTime& now);
    // Adds the pause to the offset. The state's new start makes recordedSeconds() continue
    // from `elapsed`.
    Resumption resume(const QDateTime& pauseTime, double elapsed, const QDateTime& now);

    // Recorded seconds, never below 0, with an outage in progress excluded; the time at the
    // pause while paused; absent in any other state.
    std::optional<double> currentRecordingTimestamp(const RecordingState& state,
                                                    const QDateTime& now) const;

    const std::optional<QDateTime>& startTime() const { return m_startTime; }
    double elapsedBeforePause() const { return m_elapsedBeforePause; }
    double timeOffset() const { return m_timeOffset; }
    const std::optional<QDateTime>& streamInterruptStartTime() const {
        return m_streamInterruptStartTime;
    }
    void setStreamInterruptStartTime(std::optional<QDateTime> time) {
        m_streamInterruptStartTime = std::move(time);
    }
    // Stream outages that are over are added here, as pauses are.
    void addTimeOffset(double seconds) { m_timeOffset += seconds; }

private:
    std::optional<QDateTime> m_startTime; // not moved by pauses
    double m_elapsedBeforePause = 0.0;
    double m_timeOffset = 0.0;
    std::optional<QDateTime> m_streamInterruptStartTime;
};
