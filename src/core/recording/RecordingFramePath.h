#pragma once

#include "core/recording/engines/SampleInfo.h"
#include "core/time/MediaTime.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

class AudioBuffer;
class CameraCaptureEngine;
class MediaWriterEngine;
class VideoFrame;

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
    };

    RecordingFramePath(Flags flags, Hooks hooks, int frameRate);

    void handleVideoFrame(const VideoFrame& frame, const VideoSampleInfo& info);
    void handleSystemAudio(const AudioBuffer& buffer, const AudioSampleInfo& info);
    void handleMicrophoneAudio(const AudioBuffer& buffer, const AudioSampleInfo& info);

    // The newest frame time that passed the pause and recovery drops.
    std::optional<MediaTime> lastCapturedVideoPTS() const;
    // The length of the last written frame.
    MediaTime lastVideoDuration() const;
    int64_t videoFrameCount() const { return m_videoFrameCount.load(); }
    int64_t failedAppendCount() const { return m_failedAppendCount.load(); }

    // How many recent frame times the duplicate test looks back over.
    static constexpr std::size_t recentTimesKept = 100;

private:
    bool dropsAudio() const;

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
};
