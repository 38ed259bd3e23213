#pragma once

#include "core/recording/RecordingStartupProfiler.h"

#include <QString>

#include <optional>

// The trace of the recording being started: begun by a selector, marked along the way,
// finished by the first frame or cancelled by a failure. Without a begun trace marks go
// nowhere. Thread: main.
class RecordingStartupTrace {
public:
    // Reports are appended to "startup-timing.log" in `logDirectory`; empty writes nothing.
    RecordingStartupTrace(const RecordingClock& clock, QString logDirectory);

    void begin(const QString& source);
    void mark(const QString& name);
    // Marks "<name>.begin", runs `step`, and marks "<name>.end" when it returns.
    template <typename Step>
    void phase(const QString& name, Step&& step) {
        mark(name + QStringLiteral(".begin"));
        step();
        mark(name + QStringLiteral(".end"));
    }
    void incrementShareableContentLoads();
    void finish(const QString& finalPhase);
    void cancel(const QString& reason) { finish(QStringLiteral("cancelled.") + reason); }

    bool isActive() const { return m_profiler.has_value(); }
    const RecordingStartupProfiler* profiler() const { return m_profiler ? &*m_profiler : nullptr; }

private:
    const RecordingClock& m_clock;
    QString m_logDirectory;
    std::optional<RecordingStartupProfiler> m_profiler;
};
