#pragma once

#include "core/recording/engines/ScreenCaptureEngine.h"
#include "core/time/MediaTime.h"

#include <QCoro/QCoroTask>

#include <atomic>
#include <functional>

class CameraCaptureEngine;
class MediaWriterEngine;
class RecordingClock;
class RecordingTimekeeper;

// Keeps a recording alive across a capture stream that stops on its own: it restarts the
// stream up to three times, then takes the outage out of the file's time line and out of the
// recording's duration. It also makes sure a failing writer is reacted to once.
//
// Thread: main, except where a member says otherwise. The two flags are read by the frame
// path on capture threads.
class StreamRecovery {
public:
    // What the recovery acts on, looked up each time because engines are replaced with every
    // preparation.
    struct Context {
        std::function<bool()> isStoppingRecording;
        std::function<bool()> isPaused;
        std::function<CameraCaptureEngine*()> camera;
        std::function<ScreenCaptureEngine*()> screen;
        std::function<MediaWriterEngine*()> writer;
        // Stops the window pump and drops its input; the first frame after the restart starts
        // it again on the new stream's time.
        std::function<void()> stopPump;
    };

    enum class Outcome {
        ignored,   // stopping, not recording, or a recovery already running
        recovered, // the stream runs again
        abandoned, // the recording was stopped meanwhile
        gaveUp,    // every attempt failed: the caller ends the recording
    };

    StreamRecovery(RecordingClock& clock, RecordingTimekeeper& timekeeper, Context context);

    QCoro::Task<Outcome> handleStreamInterruption(StreamError error, bool isRecordingActive);

    // Thread: the capture thread, for a frame that passed the pause test. When the stream was
    // restarted, moves the writer's time so that the file continues one frame after its last
    // one; returns true then, and the caller finishes the restart on the main thread with
    // takeDowntime().
    bool applyStreamRestartOffsetIfNeeded(MediaTime firstPTS, MediaTime frameDuration,
                                          MediaTime lastVideoDuration);
    // Leaves the outage out of the recording's duration and the camera's file.
    void takeDowntime();

    // True exactly once for a writer that has failed, from any thread.
    bool claimWriterFailure();

    // Back to the state of a recording that never had an outage.
    void reset();

    std::atomic<bool>& isInProgress() { return m_isStreamRecoveryInProgress; }
    std::atomic<bool>& isAwaitingRestartFirstFrame() { return m_awaitingStreamRestartFirstFrame; }
    bool isRecovering() const { return m_isStreamRecoveryInProgress.load(); }

    static constexpr int maxStreamRecoveryAttempts = 3;

    static void logStreamError(const StreamError& error);

private:
    RecordingClock& m_clock;
    RecordingTimekeeper& m_timekeeper;
    Context m_context;
    std::atomic<bool> m_isStreamRecoveryInProgress{false};
    std::atomic<bool> m_awaitingStreamRestartFirstFrame{false};
    std::atomic<bool> m_didHandleWriterFailure{false};
    int m_streamRecoveryAttempts = 0;
};
