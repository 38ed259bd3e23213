#include "core/recording/RecordingStartupProfiler.h"
#include "FakeRecordingClock.h"
#include "core/recording/RecordingStartupTrace.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
QString readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}
} // namespace

// Marks are timed from the start and from each other; the values here are the fake clock's
// steps: 1.5 ms, then 10.3 ms more, 11.8 ms in all.
TEST(RecordingStartupProfilerTest, ReportListsEachMarkWithDeltaAndTotal) {
    FakeRecordingClock clock;
    RecordingStartupProfiler profiler(clock, QStringLiteral("area"));
    clock.advance(0.0015);
    profiler.mark(QStringLiteral("prepareRecording.begin"));
    profiler.incrementShareableContentLoads();
    clock.advance(0.0103);
    testing::internal::CaptureStdout();
    const std::optional<QString> report =
        profiler.report(QStringLiteral("firstVideoFrameAppended"));
    const std::string printed = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->toStdString(), "⏱️ Recording startup timing [area]\n"
                                     "   ScreenCaptureKit content loads: 1\n"
                                     "      +1.5ms /     1.5ms  prepareRecording.begin\n"
                                     "     +10.3ms /    11.8ms  firstVideoFrameAppended");
    EXPECT_EQ(printed, report->toStdString() + "\n");
    EXPECT_TRUE(profiler.didReport());
}

// Once reported, the profile is frozen: no second report, no late marks.
TEST(RecordingStartupProfilerTest, ReportsOnlyOnce) {
    FakeRecordingClock clock;
    RecordingStartupProfiler profiler(clock);
    EXPECT_EQ(profiler.source(), "recordButtonClicked");
    testing::internal::CaptureStdout();
    profiler.report(QStringLiteral("done"));
    profiler.mark(QStringLiteral("late"));
    EXPECT_FALSE(profiler.report(QStringLiteral("again")));
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(profiler.events().size(), 1u);
    EXPECT_EQ(profiler.events()[0].name, "done");
}

// The log is appended to, in a folder made on demand, each entry under a dated header.
TEST(RecordingStartupProfilerTest, LogIsAppendedInItsOwnFolder) {
    QTemporaryDir folder;
    FakeRecordingClock clock;
    RecordingStartupTrace trace(clock, folder.filePath("state/tavelquiston"));
    testing::internal::CaptureStdout();
    trace.begin(QStringLiteral("screen"));
    trace.finish(QStringLiteral("firstVideoFrameAppended"));
    trace.begin(QStringLiteral("window"));
    trace.cancel(QStringLiteral("windowStartFailed"));
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(trace.isActive());
    const QString log = readAll(folder.filePath("state/tavelquiston/startup-timing.log"));
    const QString header = QStringLiteral("\n===== 2026-03-01 %1 +0000 =====\n")
                               .arg(clock.now().toUTC().toString("HH:mm:ss"));
    EXPECT_TRUE(log.startsWith(header + "⏱️ Recording startup timing [screen]"))
        << log.toStdString();
    EXPECT_EQ(log.count(header), 2);
    EXPECT_TRUE(log.contains("[window]"));
    EXPECT_TRUE(log.endsWith("cancelled.windowStartFailed\n"));
}

// A log that can't be written is reported and otherwise ignored: timing never fails a recording.
TEST(RecordingStartupProfilerTest, UnwritableLogIsOnlyReported) {
    QTemporaryDir folder;
    QFile blocker(folder.filePath("blocked"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    FakeRecordingClock clock;
    RecordingStartupProfiler profiler(clock);
    testing::internal::CaptureStdout();
    EXPECT_NO_THROW(
        profiler.writeReportToDisk(QStringLiteral("report"), folder.filePath("blocked/logs")));
    EXPECT_FALSE(testing::internal::GetCapturedStdout().empty());
}

TEST(RecordingStartupProfilerTest, LogFolderFollowsXdgStateHome) {
    const QByteArray saved = qgetenv("XDG_STATE_HOME");
    qputenv("XDG_STATE_HOME", "/tmp/state-home");
    EXPECT_EQ(RecordingStartupProfiler::defaultLogDirectory(), "/tmp/state-home/tavelquiston");
    qunsetenv("XDG_STATE_HOME");
    EXPECT_EQ(RecordingStartupProfiler::defaultLogDirectory(),
              QDir::homePath() + "/.local/state/tavelquiston");
    if (!saved.isNull())
        qputenv("XDG_STATE_HOME", saved);
}
