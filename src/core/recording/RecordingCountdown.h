#pragma once

#include <QCoro/QCoroTask>

#include <functional>
#include <memory>

class RecordingClock;

// Counts down whole seconds before a recording starts, on the named countdown timer. A count
// of 3 takes 3 seconds and reports 2, 1, 0. Thread: main.
class RecordingCountdown {
public:
    // Called with each new remaining count. Returns false when its owner is gone, which ends
    // the countdown with RecordingError streamInterrupted.
    using Publisher = std::function<bool(int remaining)>;

    static QCoro::Task<void> run(RecordingClock& clock, int seconds, Publisher publish);
};
