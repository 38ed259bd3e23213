#pragma once

#include <QDateTime>
#include <QString>

#include <QCoro/QCoroTask>

#include <cstdint>
#include <functional>

// The time a recording runs on: wall clock, monotonic clock, timers and sleeps. Injected so the
// state machine can be driven through minutes of recording in no time. Thread: main.
class RecordingClock {
public:
    virtual ~RecordingClock() = default;

    virtual QDateTime now() const = 0;
    // Nanoseconds of a monotonic clock; only differences mean anything.
    virtual uint64_t monotonicNanoseconds() const = 0;

    // A named timer; scheduling an id replaces its previous timer.
    virtual void schedule(const QString& id, double interval, bool repeats,
                          std::function<void()> block) = 0;
    virtual void invalidate(const QString& id) = 0;
    virtual bool isActive(const QString& id) const = 0;

    // Resumes the awaiting coroutine after `seconds` from the event loop (0 yields once).
    virtual QCoro::Task<void> sleep(double seconds) = 0;
};

// Real time: the system clocks and the shared TimerManager.
class SystemRecordingClock final : public RecordingClock {
public:
    static SystemRecordingClock& shared();

    QDateTime now() const override;
    uint64_t monotonicNanoseconds() const override;
    void schedule(const QString& id, double interval, bool repeats,
                  std::function<void()> block) override;
    void invalidate(const QString& id) override;
    bool isActive(const QString& id) const override;
    QCoro::Task<void> sleep(double seconds) override;
};
