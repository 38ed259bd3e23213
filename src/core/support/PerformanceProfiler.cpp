#include "core/support/PerformanceProfiler.h"

#include "core/support/Log.h"

#include <QStringList>

#include <numeric>

double PerformanceProfiler::MetricData::recentAvg() const {
    if (recentTimes.empty())
        return 0.0;
    return std::accumulate(recentTimes.begin(), recentTimes.end(), 0.0) /
           double(recentTimes.size());
}

PerformanceProfiler& PerformanceProfiler::shared() {
    static PerformanceProfiler profiler;
    return profiler;
}

PerformanceProfiler::PerformanceProfiler() = default;

void PerformanceProfiler::start() {
    m_queue.sync([this] {
        m_isEnabled = true;
        m_startTime = std::chrono::steady_clock::now();
        m_metrics.clear();
        logLine("📊 PerformanceProfiler started");
    });
}

void PerformanceProfiler::stop() {
    m_isEnabled = false;
    printReport();
}

void PerformanceProfiler::record(const QString& name, double time) {
    m_queue.async([this, name, time] {
        MetricData& metric = m_metrics[name];
        if (metric.count == 0 || time < metric.minTime)
            metric.minTime = time;
        if (metric.count == 0 || time > metric.maxTime)
            metric.maxTime = time;
        metric.count += 1;
        metric.totalTime += time;
        metric.recentTimes.push_back(time);
        if (metric.recentTimes.size() > 100)
            metric.recentTimes.pop_front();
    });
}

void PerformanceProfiler::increment(const QString& name) {
    m_queue.async([this, name] { m_metrics[name].count += 1; });
}

std::function<void()> PerformanceProfiler::startTiming(const QString& name) {
    const auto begin = std::chrono::steady_clock::now();
    return [this, name, begin] {
        record(name,
               std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    };
}

std::map<QString, PerformanceProfiler::MetricData> PerformanceProfiler::metrics() {
    std::map<QString, MetricData> copy;
    m_queue.sync([&] { copy = m_metrics; });
    return copy;
}

QString PerformanceProfiler::formatTime(double seconds) {
    if (seconds < 0.001)
        return QString::asprintf("%.2fµs", seconds * 1e6);
    if (seconds < 1.0)
        return QString::asprintf("%.2fms", seconds * 1000.0);
    return QString::asprintf("%.2fs", seconds);
}

QString PerformanceProfiler::report() {
    QString text;
    m_queue.sync([&] {
        const double duration =
            m_startTime
                ? std::chrono::duration<double>(std::chrono::steady_clock::now() - *m_startTime)
                      .count()
                : 0.0;
        const QString rule(60, QLatin1Char('='));
        QStringList lines{
            rule, QString::asprintf("📊 PERFORMANCE REPORT (Duration: %.1fs)", duration), rule};
        for (const auto& [name, metric] : m_metrics) { // std::map: sorted by name
            const double rate = duration > 0 ? metric.count / duration : 0.0;
            if (metric.totalTime == 0.0) {
                lines << QStringLiteral("%1:\n  Count: %2 (%3/sec)")
                             .arg(name)
                             .arg(metric.count)
                             .arg(QString::asprintf("%.1f", rate));
                continue;
            }
            lines
                << QStringLiteral(
                       "%1:\n  Calls: %2 (%3/sec)\n  Total: %4\n  Avg:   %5\n  Min:   %6\n  Max:   "
                       "%7\n  Recent Avg: %8")
                       .arg(name)
                       .arg(metric.count)
                       .arg(QString::asprintf("%.1f", rate), formatTime(metric.totalTime),
                            formatTime(metric.avgTime()), formatTime(metric.minTime),
                            formatTime(metric.maxTime), formatTime(metric.recentAvg()));
        }
        lines << rule;
        text = lines.join(QLatin1Char('\n'));
    });
    return text;
}

void PerformanceProfiler::printReport() {
    logLine(report().toStdString());
}
