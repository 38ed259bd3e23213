#include "core/recording/RecordingStartupTrace.h"

RecordingStartupTrace::RecordingStartupTrace(const RecordingClock& clock, QString logDirectory)
    : m_clock(clock), m_logDirectory(std::move(logDirectory)) {}

void RecordingStartupTrace::begin(const QString& source) {
    m_profiler.emplace(m_clock, source);
}

void RecordingStartupTrace::mark(const QString& name) {
    if (m_profiler)
        m_profiler->mark(name);
}

void RecordingStartupTrace::incrementShareableContentLoads() {
    if (m_profiler)
        m_profiler->incrementShareableContentLoads();
}

void RecordingStartupTrace::finish(const QString& finalPhase) {
    if (!m_profiler)
        return;
    const std::optional<QString> report = m_profiler->report(finalPhase);
    if (report && !m_logDirectory.isEmpty())
        m_profiler->writeReportToDisk(*report, m_logDirectory);
    m_profiler.reset();
}
