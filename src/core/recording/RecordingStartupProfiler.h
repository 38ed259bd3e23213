#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

class RecordingClock;

// Times the way from the click on Record to the first frame in the file, as named marks on a
// monotonic clock. Thread: main.
class RecordingStartupProfiler {
public:
    struct Event {
        QString name;
        uint64_t time = 0;
    };

    explicit RecordingStartupProfiler(const RecordingClock& clock,
                                      QString source = QStringLiteral("recordButtonClicked"));

    // Ignored once reported, so late marks cannot change a finished report.
    void mark(const QString& name);
    void incrementShareableContentLoads() { ++m_shareableContentLoads; }
    // Marks the final phase, prints the report and returns it; absent on a second call.
    std::optional<QString> report(const QString& finalPhase);

    // Appends a report to "startup-timing.log" in `directory`, creating what is missing. A
    // failure is logged and otherwise ignored: timing must never disturb a recording.
    void writeReportToDisk(const QString& report, const QString& directory) const;
    // $XDG_STATE_HOME/tavelquiston, by default ~/.local/state/tavelquiston.
    static QString defaultLogDirectory();

    const QString& source() const { return m_source; }
    const std::vector<Event>& events() const { return m_events; }
    int shareableContentLoads() const { return m_shareableContentLoads; }
    bool didReport() const { return m_didReport; }

private:
    const RecordingClock& m_clock;
    QString m_source;
    uint64_t m_startedAt;
    std::vector<Event> m_events;
    int m_shareableContentLoads = 0;
    bool m_didReport = false;
};
