#pragma once

#include "app/trimmer/SeekCoalescer.h"

#include <QImage>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

class PreviewRenderer;
class RoundedCameraCompositorSettings;

// The trimmer's player: decodes and composes on a thread of its own, always the newest frame
// asked for (older requests that were not begun are dropped), and plays by a steady clock.
// Scrubbing goes through a SeekCoalescer; a released scrubber seeks exactly.
//
// Main thread: every call and every signal. The decoding thread only touches the renderer
// and the request slot.
class TrimmerPlayer final : public QObject {
    Q_OBJECT
public:
    TrimmerPlayer(std::unique_ptr<PreviewRenderer> renderer, double duration,
                  QObject* parent = nullptr);
    ~TrimmerPlayer() override;

    double duration() const { return m_duration; }
    double position() const { return m_position; }
    bool isPlaying() const { return m_playing; }
    bool isStyled() const { return m_styled; }
    bool isLooping() const { return m_looping; }
    void setLooping(bool looping) { m_looping = looping; }
    // Playback speed (0.25 to 4); takes effect from the current position.
    double rate() const { return m_rate; }
    void setRate(double rate);
    // The frame on screen and the time it was asked for.
    const QImage& currentFrame() const { return m_frame; }
    double currentFrameTime() const { return m_frameTime; }

    void setStyled(bool styled);
    void setCompositorSettings(const RoundedCameraCompositorSettings& settings);
    void play();
    void pause();
    void togglePlay() { m_playing ? pause() : play(); }
    // An exact seek (keys, clicks, a released scrubber).
    void seek(double seconds);
    // A position from a dragged scrubber: coalesced.
    void scrub(double seconds);
    void endScrub(double seconds);
    // One source frame forward or back from the one on screen.
    void step(int frames);
    // The seek limiter, for tests that drive its clock.
    SeekCoalescer& seekCoalescer() { return m_coalescer; }

signals:
    void positionChanged(double seconds);
    void playingChanged(bool playing);
    void rateChanged(double rate);
    // A decoded (and, when styled, composed) frame is on screen.
    void frameShown(double seconds);

private:
    struct Request {
        double seconds = 0.0;
        bool styled = true;
        bool rebuild = false;
        std::shared_ptr<const RoundedCameraCompositorSettings> settings;
    };
    void setPosition(double seconds);
    void requestFrame(double seconds, bool rebuild = false);
    void decodeLoop();
    // The frame asked for at `seconds`, showing the source frame [start, start + length).
    void deliver(double seconds, QImage image, double start, double length);
    void tick();
    void flushScrub();

    std::unique_ptr<PreviewRenderer> m_renderer;
    double m_duration = 0.0;
    double m_position = 0.0;
    bool m_playing = false;
    bool m_styled = true;
    bool m_looping = false;
    double m_rate = 1.0;
    QImage m_frame;
    double m_frameTime = -1.0;
    double m_frameStart = 0.0;
    double m_frameLength = 0.0;

    // Playback: the position `m_anchorPosition` was at `m_anchorTime`.
    std::chrono::steady_clock::time_point m_anchorTime;
    double m_anchorPosition = 0.0;
    QTimer m_displayTimer;
    SeekCoalescer m_coalescer;
    QTimer m_scrubTimer;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::optional<Request> m_request;
    std::shared_ptr<const RoundedCameraCompositorSettings> m_pendingSettings;
    bool m_stopping = false;
    // Last: started once everything it reads exists, joined before anything goes.
    std::thread m_thread;
};
