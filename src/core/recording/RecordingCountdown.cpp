#include "core/recording/RecordingCountdown.h"

#include "core/async/Continuation.h"
#include "core/model/RecordingError.h"
#include "core/recording/RecordingClock.h"
#include "core/support/TimerManager.h"

QCoro::Task<void> RecordingCountdown::run(RecordingClock& clock, int seconds, Publisher publish) {
    Continuation finished;
    auto remaining = std::make_shared<int>(seconds);
    // A tick may already be queued when the countdown ends; it must do nothing.
    auto completed = std::make_shared<bool>(false);
    const QString id = QString::fromLatin1(TimerManager::TimerID::recordingCountdown);
    clock.schedule(id, 1.0, true, [=, &clock]() mutable {
        if (*completed)
            return;
        *remaining -= 1;
        if (!publish(*remaining)) {
            *completed = true;
            clock.invalidate(id);
            finished.fail(std::make_exception_ptr(RecordingError::streamInterrupted()));
            return;
        }
        if (*remaining <= 0) {
            *completed = true;
            clock.invalidate(id);
            finished.resume();
        }
    });
    co_await finished;
}
