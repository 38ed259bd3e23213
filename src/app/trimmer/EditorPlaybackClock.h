#pragma once

#include <QObject>
#include <QTimer>

#include <functional>

// Publishes the playhead at display rate while playing, so that only the views that draw the
// playhead follow it, and nothing else in the editor redraws at that pace. Positions are read
// from a source (the player's clock); a change too small to see is not published.
//
// Main thread.
class EditorPlaybackClock final : public QObject {
    Q_OBJECT
public:
    // Changes smaller than this are not published unless forced.
    static constexpr double minimumChange = 1.0 / 240.0;
    static constexpr int frameIntervalMs = 1000 / 60;

    explicit EditorPlaybackClock(QObject* parent = nullptr);

    double currentTime() const { return m_currentTime; }
    bool isRunning() const { return m_frameTimer.isActive(); }

    // Reads positions from `source` from now on, publishing the first at once.
    void attach(std::function<double()> source);
    void detach();
    // The frame clock: reads the source at display rate while running. Stopping publishes the
    // final position, so the last one shows.
    void start();
    void stop();
    // Publishes `seconds` whatever its distance from the last.
    void setCurrentTime(double seconds) { publish(seconds, true); }
    void refreshFromPlayer(bool force);

signals:
    void currentTimeChanged(double seconds);
    // Every frame of the running frame clock, after any publication: for owners that watch the
    // source itself (an end reached, a source that stalled).
    void frameTicked();

private:
    void publish(double seconds, bool force);

    std::function<double()> m_source;
    QTimer m_frameTimer;
    double m_currentTime = 0.0;
};
