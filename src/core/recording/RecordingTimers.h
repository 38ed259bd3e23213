#pragma once

#include <QString>

#include <functional>

class RecordingClock;

// The clock's timers a recording runs besides the pointer sampling: the duration shown while
// recording and the automatic stop. Thread: main; the callbacks run there.
class RecordingTimers {
public:
    explicit RecordingTimers(RecordingClock& clock) : m_clock(clock) {}

    // `tick` every tenth of a second until stopped.
    void startDuration(std::function<void()> tick);
    void stopDuration();
    // `fire` once, `minutes` from now; no timer when `minutes` is not above 0. Logs either way.
    void startAutoStop(int minutes, std::function<void()> fire);
    // Every timer a recording may have running, the sampling and the countdown included.
    void invalidateAll();

private:
    RecordingClock& m_clock;
};
