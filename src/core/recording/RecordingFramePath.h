#pragma once

#include "core/recording/engines/SampleTiming.h"
#include "core/support/PacedLoop.h"
#include "core/time/MediaTime.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class CameraCaptureEngine;
class MediaWriterEngine;
class ZoomRenderer;

// Decides what of the captured frames and audio reaches the writer: it starts the writer's
// session at the first frame (and the camera's, so both files share their zero), drops what
// arrives while paused or while the stream recovers, and refuses frames whose time does not
// advance. One is made per prepared recording and lives as long as the handlers holding it.
//
// Thread: the handle* calls come from capture and audio threads, concurrently; they never
// block and never throw. The flags and the writer pointer belong to the coordinator, which
// changes them on the main thread. Main-thread work (startup trace phases) goes through hooks
// that must hop there themselves.
class RecordingFramePath {
public:
    struct Flags {
        const std::atomic<bool>& isPaused;
        const std::atomic<bool>& isStreamRecoveryInProgress;
        std::atomic<bool>& awaitingStreamRestartFirstFrame;
        const std::atomic<MediaWriterEngine*>& writer;
    };
    struct Hooks {
        CameraCaptureEngine* camera = nullptr;
        std::function<void(const QString& phase)> markStartupPhase;
        std::function<void()> firstVideoFrameAppended;
        // After a failed append; the recovery looks at the writer's failure latch.
        std::function<void()> appendFailed;
        // For every frame while a restarted stream awaits its first frame, before the frame is
        // written: the writer's time must move first. On the capture thread.
        std::function<void(MediaTime firstPTS, MediaTime frameDuration,
                           MediaTime lastVideoDuration)>
            streamRestarted;
    };

    // Window recordings with click-to-zoom go through a pump on a fixed clock: it writes the
    // newest frame at most once per tick, stamped by its count, so the file's frames are evenly
    // spaced however unevenly a window is delivered.
    struct Pump {
        bool enabled = false;
        int frameRate = 60;
        // The owner calls pumpTick itself instead of the pump's own thread (tests step it).
        bool manualTicks = false;
        // A cheap change test on a frame's pixels, which only the media layer can read; equal
        // values mean the picture did not change. Without it every input counts as changed.
        std::function<uint32_t(const VideoFrame& frame)> changeSignature;
        // The live zoom, stepped and rendered for every changed or animating tick.
        std::shared_ptr<ZoomRenderer> zoomRenderer;
    };

    RecordingFramePath(Flags flags, Hooks hooks, int frameRate, Pump pump);
    ~RecordingFramePath();
    RecordingFramePath(const RecordingFramePath&) = delete;
    RecordingFramePath& operator=(const RecordingFramePath&) = delete;

    void handleVideoFrame(const VideoFrameHandle& frame, const VideoSampleTiming& timing);
    void handleSystemAudio(const AudioBufferHandle& buffer, const AudioSampleTiming& timing);
    void handleMicrophoneAudio(const AudioBufferHandle& buffer, const AudioSampleTiming& timing);

    // Stops the pump's clock (waits at most one tick) and logs how many ticks repeated a frame.
    void stopPump();
    // Stops the pump for a stream restart: the restarted stream's first frame starts it again,
    // on that frame's time.
    void rearmPump();
    // One tick of the pump; its thread calls this, tests may too.
    void pumpTick();
    bool isPumpRunning() const { return m_pumpLoop && m_pumpLoop->isRunning(); }
    int64_t pumpFramesEmitted() const { return m_pumpFramesEmitted.load(); }
    int64_t skippedFrameCount() const { return m_skippedFrameCount.load(); }

    // The newest frame time that passed the pause and recovery drops.
    std::optional<MediaTime> lastCapturedVideoPTS() const;
    // The length of the last written frame.
    MediaTime lastVideoDuration() const;
    // Seconds on the written video's time line at the newest frame `path` let through (at the
    // writer's last frame without a path); absent before the writer's session starts.
    static std::optional<double> videoTimelineSeconds(const RecordingFramePath* path,
                                                      const MediaWriterEngine& writer);
    int64_t videoFrameCount() const { return m_videoFrameCount.load(); }
    int64_t failedAppendCount() const { return m_failedAppendCount.load(); }

    // How many recent frame times the duplicate test looks back over.
    static constexpr std::size_t recentTimesKept = 100;

private:
    bool dropsAudio() const;
    void startPump();
    void logFrameSkipStats() const;

    Flags m_flags;
    Hooks m_hooks;
    MediaTime m_frameDuration;

    // The video handler runs on one capture thread at a time, but the main thread reads the
    // last times; this guards them, held only for a few instructions.
    mutable std::mutex m_mutex;
    std::deque<MediaTime> m_recentVideoPTS;
    std::optional<MediaTime> m_lastCapturedVideoPTS;
    MediaTime m_lastVideoDuration = MediaTime::zero();

    std::atomic<int64_t> m_videoFrameCount{0};
    std::atomic<int64_t> m_failedAppendCount{0};
    std::atomic<bool> m_didAppendFirstFrame{false};
    std::atomic<int64_t> m_systemAudioCount{0};
    std::atomic<int64_t> m_microphoneCount{0};

    // The pump ("FixedRateZoomPump"): its state is touched by its own thread, except the
    // newest input, which the video handler hands over under the mutex.
    Pump m_pump;
    std::mutex m_pumpMutex;
    VideoFrameHandle m_lastInput; // under m_pumpMutex
    std::unique_ptr<PacedLoop> m_pumpLoop;
    std::atomic<bool> m_pumpStarted{false};
    MediaTime m_pumpStartPTS = MediaTime::zero();
    std::atomic<int64_t> m_pumpFramesEmitted{0};
    std::atomic<int64_t> m_skippedFrameCount{0};
    uint32_t m_lastFrameChecksum = 0;
    VideoFrameHandle m_lastProcessedFrame;
};
