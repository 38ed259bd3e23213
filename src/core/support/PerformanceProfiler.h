#pragma once

#include "core/support/SerialQueue.h"

#include <QString>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>

// Counts and times named operations while enabled, and prints a report. Thread-safe: every
// access to the metrics happens on the profiler's own serial queue.
class PerformanceProfiler {
public:
    struct MetricData {
        int count = 0;
        double totalTime = 0.0;
        double minTime = 0.0;
        double maxTime = 0.0;
        std::deque<double> recentTimes; // the last 100 times

        double avgTime() const { return count > 0 ? totalTime / count : 0.0; }
        double recentAvg() const;
    };

    static PerformanceProfiler& shared();
    PerformanceProfiler();

    void start();
    void stop();
    bool isEnabled() const { return m_isEnabled.load(); }

    template <typename F>
    auto measure(const QString& name, F&& block) -> decltype(block()) {
        if (!isEnabled())
            return block();
        const auto begin = std::chrono::steady_clock::now();
        struct Recorder {
            PerformanceProfiler* profiler;
            const QString& name;
            std::chrono::steady_clock::time_point begin;
            ~Recorder() {
                profiler->record(
                    name, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin)
                              .count());
            }
        } recorder{this, name, begin};
        return block();
    }

    void record(const QString& name, double time);
    void increment(const QString& name);
    // Returns a callback that records the time since this call under `name`.
    std::function<void()> startTiming(const QString& name);

    // A copy of the metrics, taken on the queue (waits for work queued before it).
    std::map<QString, MetricData> metrics();
    QString report();
    void printReport();

    // "%.2fµs" below a millisecond, "%.2fms" below a second, else "%.2fs".
    static QString formatTime(double seconds);

private:
    SerialQueue m_queue{"com.tavelquiston.profiler"};
    std::atomic<bool> m_isEnabled{false};
    std::optional<std::chrono::steady_clock::time_point> m_startTime; // queue only
    std::map<QString, MetricData> m_metrics;                          // queue only
};
