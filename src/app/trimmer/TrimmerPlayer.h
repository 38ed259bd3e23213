#pragma once

#include "app/trimmer/EditorPlaybackClock.h"
#include "app/trimmer/SeekCoalescer.h"

#include <QImage>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

class PlayableRanges;
class PreviewRenderer;
class QAudioDevice;
class RoundedCameraCompositorSettings;
class TrimmerAudioOutput;
struct VideoSegment;

// The trimmer's player: decodes and composes on a thread of its own, always the newest frame
// asked for (older requests that were not begun are dropped). While the recording's sound plays,
// the picture follows the sound's clock; without sound (none recorded, no sound device) it
// follows a steady clock. The playhead is published by an EditorPlaybackClock. Playback passes
// over the parts marked for removal. Scrubbing goes through a SeekCoalescer; a released
// scrubber seeks exactly.
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
    void setLooping(bool looping);
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

    // Plays the movie's sound through `device`; without it (no sound in the movie, no device)
    // playback goes on silently by the steady clock.
    void openAudio(const std::filesystem::path& movie);
    void openAudio(const std::filesystem::path& movie, const QAudioDevice& device);
    bool hasAudio() const { return bool(m_audio); }
    // Whether the sound's clock leads the picture now.
    bool isFollowingAudio() const { return m_followingAudio; }
    TrimmerAudioOutput* audioOutput() { return m_audio.get(); }
    double volume() const { return m_volume; }
    bool isMuted() const { return m_muted; }
    void setVolume(double volume);
    void setMuted(bool muted);
    // The parts marked for removal are passed over.
    void setCutSegments(const std::vector<VideoSegment>& segments);
    const PlayableRanges& playableRanges() const { return *m_ranges; }
    EditorPlaybackClock& playbackClock() { return m_clock; }

    // Since playback last began: frames shown, source frames never shown although playback
    // passed them at normal speed or slower, frames that arrived after their time was over, and
    // frames shown again (composed twice).
    struct Statistics {
        int shown = 0;
        int dropped = 0;
        int late = 0;
        int repeated = 0;
    };
    const Statistics& statistics() const { return m_statistics; }
    double currentFrameStart() const { return m_frameStart; }

signals:
    void positionChanged(double seconds);
    void playingChanged(bool playing);
    void rateChanged(double rate);
    void volumeChanged(double volume, bool muted);
    // A decoded (and, when styled, composed) frame is on screen.
    void frameShown(double seconds);

private:
    struct Request {
        double seconds = 0.0;
        bool styled = true;
        bool rebuild = false;
        bool exact = true;
        std::shared_ptr<const RoundedCameraCompositorSettings> settings;
    };
    void setPosition(double seconds);
    void requestFrame(double seconds, bool rebuild = false, bool exact = true);
    void decodeLoop();
    // The frame asked for at `seconds`, showing the source frame [start, start + length).
    void deliver(double seconds, QImage image, double start, double length);
    void show(double seconds, QImage image, double start, double length);
    void clockTicked(double seconds);
    void frameTicked();
    void finishPlayback();
    void flushScrub();
    // Where the playhead is by the clock that leads now.
    double playbackTime() const;
    // Playback goes on from `seconds` by a fresh start of both clocks.
    void restartClocks(double seconds);

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
    std::unique_ptr<PlayableRanges> m_ranges;
    std::unique_ptr<TrimmerAudioOutput> m_audio;
    bool m_followingAudio = false;
    // When the sound's clock last moved, to notice a sink that stopped playing without a word.
    std::chrono::steady_clock::time_point m_audioMovedAt;
    double m_audioLastPosition = -1.0;
    double m_volume = 1.0;
    bool m_muted = false;
    Statistics m_statistics;
    // The frame shown last while playing, to find frames passed over.
    double m_lastPlayedStart = -1.0;
    // The position of the last frame asked for.
    double m_lastRequest = -1.0;
    // The next frame while playing, made before its time.
    struct Ahead {
        QImage image;
        double seconds = 0.0;
        double start = 0.0;
        double length = 0.0;
    };
    std::optional<Ahead> m_ahead;

    // Playback: the position `m_anchorPosition` was at `m_anchorTime`.
    std::chrono::steady_clock::time_point m_anchorTime;
    double m_anchorPosition = 0.0;
    EditorPlaybackClock m_clock;
    SeekCoalescer m_coalescer;
    QTimer m_scrubTimer;
    // A scrubber that rests gets its exact frame in place of the one near it.
    QTimer m_refineTimer;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::optional<Request> m_request;
    std::shared_ptr<const RoundedCameraCompositorSettings> m_pendingSettings;
    bool m_stopping = false;
    // Main thread: the player is being destroyed.
    bool m_closing = false;
    // Last: started once everything it reads exists, joined before anything goes.
    std::thread m_thread;
};
