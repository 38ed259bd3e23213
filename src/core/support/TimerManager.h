#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <mutex>

class QTimer;

// Owns every timer of the program under a fixed identifier, so a timer is replaced, stopped or
// counted by name and never leaks. Thread: timers fire on the thread that scheduled them, which
// must run an event loop (the main thread); the map is guarded by a lock so the queries may come
// from anywhere.
class TimerManager final : public QObject {
    Q_OBJECT
public:
    struct TimerID {
        static constexpr const char* recordingDuration = "recording.duration";
        static constexpr const char* recordingAutoStop = "recording.autoStop";
        static constexpr const char* recordingCountdown = "recording.countdown";
        static constexpr const char* cursorSampling = "recording.cursorSampling";
        static constexpr const char* exportProgress = "export.progress";
        static constexpr const char* previewAutoClose = "preview.autoClose";
    };

    static TimerManager& shared();

    TimerManager();
    ~TimerManager() override;

    // Replaces any timer of the same identifier; the old block never fires again.
    void schedule(const QString& id, double interval, bool repeats, std::function<void()> block);
    // One shot whose entry is gone before the block runs, so the block may schedule the same id.
    void scheduleOnce(const QString& id, double delay, std::function<void()> block);
    void invalidate(const QString& id);
    void invalidateAll();
    bool isActive(const QString& id) const;
    int activeTimerCount() const;
    QStringList activeTimerIDs() const;

private:
    void removeLocked(const QString& id);

    mutable std::mutex m_lock;
    std::map<QString, QTimer*> m_timers; // owned: deleted with deleteLater when removed
};
