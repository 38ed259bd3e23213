#pragma once

#include "core/async/Continuation.h"
#include "core/recording/RecordingClock.h"

#include <QDateTime>

#include <cmath>
#include <map>
#include <string>
#include <vector>

// Time that moves only when a test says so. Timers and sleeps fire in time order during
// advance(); every schedule is remembered so tests can check intervals.
class FakeRecordingClock final : public RecordingClock {
public:
    struct Scheduled {
        QString id;
        double interval = 0.0;
        bool repeats = false;
    };

    QDateTime now() const override { return m_origin.addMSecs(std::llround(m_seconds * 1000.0)); }
    uint64_t monotonicNanoseconds() const override {
        return uint64_t(std::llround(m_seconds * 1e9));
    }

    void schedule(const QString& id, double interval, bool repeats,
                  std::function<void()> block) override {
        scheduled.push_back({id, interval, repeats});
        m_timers[id] = Timer{m_seconds + interval, interval, repeats, std::move(block)};
    }
    void invalidate(const QString& id) override {
        invalidated.push_back(id);
        m_timers.erase(id);
    }
    bool isActive(const QString& id) const override { return m_timers.contains(id); }

    QCoro::Task<void> sleep(double seconds) override {
        sleeps.push_back(seconds);
        Continuation wake;
        m_wakes.push_back({m_seconds + seconds, wake});
        co_await wake;
    }

    // Moves time forward, firing what falls due on the way, in order.
    void advance(double seconds) {
        const double target = m_seconds + seconds;
        while (true) {
            double due = target + 1.0;
            QString timerId;
            int wakeIndex = -1;
            for (const auto& [id, timer] : m_timers) {
                if (timer.due < due) {
                    due = timer.due;
                    timerId = id;
                }
            }
            for (size_t i = 0; i < m_wakes.size(); ++i) {
                if (m_wakes[i].due < due) {
                    due = m_wakes[i].due;
                    wakeIndex = int(i);
                }
            }
            if (due > target + 1e-9)
                break;
            m_seconds = std::max(m_seconds, due);
            if (wakeIndex >= 0) {
                Continuation wake = m_wakes[size_t(wakeIndex)].wake;
                m_wakes.erase(m_wakes.begin() + wakeIndex);
                wake.resume();
                continue;
            }
            Timer& timer = m_timers[timerId];
            const std::function<void()> block = timer.block;
            if (timer.repeats)
                timer.due += timer.interval;
            else
                m_timers.erase(timerId);
            block();
        }
        m_seconds = target;
    }

    double seconds() const { return m_seconds; }
    bool hasPendingSleep() const { return !m_wakes.empty(); }

    std::vector<Scheduled> scheduled;
    std::vector<QString> invalidated;
    std::vector<double> sleeps;

private:
    struct Timer {
        double due = 0.0;
        double interval = 0.0;
        bool repeats = false;
        std::function<void()> block;
    };
    struct Wake {
        double due = 0.0;
        Continuation wake;
    };

    QDateTime m_origin{QDate(2026, 3, 1), QTime(14, 5, 9)};
    double m_seconds = 0.0;
    std::map<QString, Timer> m_timers;
    std::vector<Wake> m_wakes;
};
