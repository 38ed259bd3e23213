#include "core/recording/RecordingStartupProfiler.h"

#include "core/recording/RecordingClock.h"
#include "core/support/Log.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

RecordingStartupProfiler::RecordingStartupProfiler(const RecordingClock& clock, QString source)
    : m_clock(clock), m_source(std::move(source)), m_startedAt(clock.monotonicNanoseconds()) {}

void RecordingStartupProfiler::mark(const QString& name) {
    if (m_didReport)
        return;
    m_events.push_back({name, m_clock.monotonicNanoseconds()});
}

std::optional<QString> RecordingStartupProfiler::report(const QString& finalPhase) {
    if (m_didReport)
        return std::nullopt;
    mark(finalPhase);
    m_didReport = true;

    QString text =
        QStringLiteral("⏱️ Recording startup timing [%1]\n   ScreenCaptureKit content "
                       "loads: %2\n")
            .arg(m_source)
            .arg(m_shareableContentLoads);
    QStringList lines;
    uint64_t previous = m_startedAt;
    for (const Event& event : m_events) {
        const double delta = (double(event.time) - double(previous)) / 1e6;
        const double total = (double(event.time) - double(m_startedAt)) / 1e6;
        lines << QString::fromStdString(
            fmt::format("   {:+7.1f}ms / {:7.1f}ms  {}", delta, total, event.name.toStdString()));
        previous = event.time;
    }
    text += lines.join(QLatin1Char('\n'));
    logLine(text.toStdString());
    return text;
}

void RecordingStartupProfiler::writeReportToDisk(const QString& report,
                                                 const QString& directory) const {
    if (!QDir().mkpath(directory)) {
        logLine("⚠️ Failed to write startup timing log: cannot create the folder {}",
                directory.toStdString());
        return;
    }
    QFile file(QDir(directory).filePath(QStringLiteral("startup-timing.log")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        logLine("⚠️ Failed to write startup timing log: {}", file.errorString().toStdString());
        return;
    }
    const QString date = m_clock.now().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    const QString entry = QStringLiteral("\n===== %1 +0000 =====\n%2\n").arg(date, report);
    // One write, so two processes appending at once never interleave within an entry.
    if (file.write(entry.toUtf8()) < 0)
        logLine("⚠️ Failed to write startup timing log: {}", file.errorString().toStdString());
}

QString RecordingStartupProfiler::defaultLogDirectory() {
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (state.isEmpty())
        state = QDir::homePath() + QStringLiteral("/.local/state");
    return state + QStringLiteral("/tavelquiston");
}
