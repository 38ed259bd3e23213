#include "core/recording/RecordingFramePath.h"

#include "core/recording/engines/ZoomRenderer.h"

#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/support/Log.h"

#include <algorithm>
#include <exception>

namespace {
// The first few appends of each kind are logged; after that only failures, sparingly.
constexpr int64_t loggedSuccesses = 3;
constexpr int64_t loggedFailures = 5;
} // namespace

RecordingFramePath::RecordingFramePath(Flags flags, Hooks hooks, int frameRate, Pump pump)
    : m_flags(flags), m_hooks(std::move(hooks)),
      m_frameDuration(MediaTime::make(1, std::max(frameRate, 1))), m_pump(pump) {
    m_pump.frameRate = std::max(m_pump.frameRate, 1);
}

RecordingFramePath::~RecordingFramePath() {
    stopPump();
}

void RecordingFramePath::handleVideoFrame(const VideoFrameHandle& frame,
                                          const VideoSampleTiming& timing) {
    if (!frame)
        return;
    if (m_flags.isPaused.load() || m_flags.isStreamRecoveryInProgress.load())
        return; // nothing of a pause reaches the file
    if (m_flags.awaitingStreamRestartFirstFrame.load()) {
        // A restarted stream counts time from a new origin.
        std::lock_guard lock(m_mutex);
        m_recentVideoPTS.clear();
    }
    MediaWriterEngine* writer = m_flags.writer.load();
    const MediaTime pts = timing.presentationTime;
    if (writer && !writer->isWriting()) {
        logLine("🎬 Starting MediaWriter session at PTS: {}", formatDouble(pts.seconds()));
        try {
            writer->startSession(pts);
        } catch (const std::exception& error) {
            // The next frame tries again: the writer is still not writing.
            logLine("❌ Failed to start MediaWriter session: {}", error.what());
            return;
        } catch (...) {
            logLine("❌ Failed to start MediaWriter session: unknown error");
            return;
        }
        if (m_hooks.markStartupPhase)
            m_hooks.markStartupPhase(QStringLiteral("mediaWriterSessionStarted"));
        logLine("✅ MediaWriter session started");
        if (CameraCaptureEngine* camera = m_hooks.camera;
            camera && camera->isSeparateLayerRecording()) {
            try {
                camera->startWriterSessionIfNeeded(pts);
                logLine("🔗 Camera synced to screen session start time: {}",
                        formatDouble(pts.seconds()));
            } catch (...) {
                // The camera file starts with its own first frame instead.
            }
        }
    }
    if (!writer || !writer->isWriting())
        return;

    const MediaTime frameDuration =
        timing.duration.isNumeric() && timing.duration > MediaTime::zero() ? timing.duration
                                                                           : m_frameDuration;
    // Only the first frame after a stream restart: the writer's time moves before it is written.
    if (m_flags.awaitingStreamRestartFirstFrame.load() && m_hooks.streamRestarted) {
        MediaTime lastVideoDuration = MediaTime::zero();
        {
            std::lock_guard lock(m_mutex);
            lastVideoDuration = m_lastVideoDuration;
        }
        m_hooks.streamRestarted(pts, frameDuration, lastVideoDuration);
    }
    {
        std::lock_guard lock(m_mutex);
        m_lastCapturedVideoPTS = pts;
        // A repeat or a frame out of order, judged by time alone.
        const bool seen = std::any_of(m_recentVideoPTS.begin(), m_recentVideoPTS.end(),
                                      [&](const MediaTime& t) { return t >= pts; });
        if (seen) {
            logLine("⏭️ Skipping duplicate frame");
            return;
        }
        m_recentVideoPTS.push_back(pts);
        if (m_recentVideoPTS.size() > recentTimesKept)
            m_recentVideoPTS.pop_front();
    }

    if (m_pump.enabled) {
        // The pump writes, not the handler; it only ever sees the newest frame.
        {
            std::lock_guard lock(m_pumpMutex);
            m_lastInput = frame;
        }
        if (!m_pumpStarted.exchange(true)) {
            m_pumpStartPTS = pts;
            m_pumpFramesEmitted = 0;
            startPump();
        }
        return;
    }

    const bool appended = writer->appendVideoBuffer(*frame);
    const int64_t number = ++m_videoFrameCount;
    if (!appended) {
        const int64_t failures = ++m_failedAppendCount;
        if (failures <= loggedFailures)
            logLine("⚠️ Failed to append video frame #{}", number);
        if (m_hooks.appendFailed)
            m_hooks.appendFailed();
        return;
    }
    if (number <= loggedSuccesses)
        logLine("✅ Successfully appended video frame #{}", number);
    {
        std::lock_guard lock(m_mutex);
        m_lastVideoDuration = frameDuration;
    }
    if (!m_didAppendFirstFrame.exchange(true) && m_hooks.firstVideoFrameAppended)
        m_hooks.firstVideoFrameAppended();
}

bool RecordingFramePath::dropsAudio() const {
    return m_flags.isPaused.load() || m_flags.isStreamRecoveryInProgress.load() ||
           m_flags.awaitingStreamRestartFirstFrame.load();
}

void RecordingFramePath::handleSystemAudio(const AudioBufferHandle& buffer,
                                           const AudioSampleTiming& timing) {
    if (!buffer || dropsAudio())
        return;
    MediaWriterEngine* writer = m_flags.writer.load();
    if (!writer || !writer->isWriting())
        return;
    const int64_t number = ++m_systemAudioCount;
    if (number <= loggedSuccesses) {
        logLine("🔊 Received system audio frame #{}", number);
        logLine("   Sample rate: {} Hz", timing.sampleRate);
        logLine("   Channels: {}", timing.channelCount);
        logLine("   Format: float32 planar");
    }
    if (writer->appendAudioBuffer(*buffer, 0, false)) {
        if (number <= loggedSuccesses)
            logLine("✅ Successfully appended system audio frame #{}", number);
        return;
    }
    if (number <= loggedFailures)
        logLine("⚠️ Failed to append system audio frame #{}", number);
    if (m_hooks.appendFailed)
        m_hooks.appendFailed();
}

void RecordingFramePath::handleMicrophoneAudio(const AudioBufferHandle& buffer,
                                               const AudioSampleTiming& timing) {
    if (!buffer || dropsAudio())
        return;
    MediaWriterEngine* writer = m_flags.writer.load();
    const int64_t number = ++m_microphoneCount;
    if (number <= loggedSuccesses) {
        logLine("🎙️ Received microphone audio frame #{}", number);
        logLine("   Audio PTS: {}", formatDouble(timing.presentationTime.seconds()));
        logLine("   Sample rate: {}", timing.sampleRate);
        logLine("   Channels: {}", timing.channelCount);
    }
    if (!writer || !writer->isWriting()) {
        // Audio before the first video frame has no place on the video's time line.
        if (number <= loggedSuccesses)
            logLine("   ⏳ Waiting for video session to start...");
        return;
    }
    if (writer->appendAudioBuffer(*buffer, 0, true)) {
        if (number <= loggedSuccesses)
            logLine("✅ Successfully appended microphone frame #{}", number);
        return;
    }
    if (number <= loggedFailures)
        logLine("⚠️ Failed to append microphone frame #{}", number);
    if (m_hooks.appendFailed)
        m_hooks.appendFailed();
}

void RecordingFramePath::startPump() {
    m_lastFrameChecksum = 0;
    m_lastProcessedFrame.reset();
    m_skippedFrameCount = 0;
    if (m_pump.manualTicks)
        return;
    PacedLoop::Callbacks callbacks;
    callbacks.tick = [this] {
        pumpTick();
        return true;
    };
    m_pumpLoop = std::make_unique<PacedLoop>(
        "FixedRateZoomPump", PacedLoop::intervalAt(m_pump.frameRate), std::move(callbacks));
}

void RecordingFramePath::stopPump() {
    if (!isPumpRunning())
        return;
    m_pumpLoop->stop();
    {
        std::lock_guard lock(m_pumpMutex);
        m_lastInput.reset();
    }
    logFrameSkipStats();
}

void RecordingFramePath::rearmPump() {
    stopPump();
    m_pumpLoop.reset();
    std::lock_guard lock(m_pumpMutex);
    m_lastInput.reset();
    m_pumpStarted = false;
}

void RecordingFramePath::pumpTick() {
    MediaWriterEngine* writer = m_flags.writer.load();
    if (!writer || !writer->isWriting() || m_flags.isStreamRecoveryInProgress.load() ||
        m_flags.awaitingStreamRestartFirstFrame.load())
        return;
    VideoFrameHandle input;
    {
        // Taken, not copied: a tick without a new input writes nothing.
        std::lock_guard lock(m_pumpMutex);
        input.swap(m_lastInput);
    }
    if (!input)
        return;
    // Times come from the count, never the clock, so the output cannot drift.
    const int64_t emitted = m_pumpFramesEmitted++;
    const MediaTime pts =
        m_pumpStartPTS + MediaTime::fromSeconds(double(emitted) / m_pump.frameRate, 600);
    {
        std::lock_guard lock(m_mutex);
        m_lastCapturedVideoPTS = pts;
    }
    // Without a change test every input is new; with one, an unchanged picture is repeated.
    const bool hasSignature = bool(m_pump.changeSignature);
    const uint32_t checksum = hasSignature ? m_pump.changeSignature(*input) : 0;
    // While the zoom moves, an unchanged picture still makes a new frame.
    ZoomRenderer* zoom = m_pump.zoomRenderer.get();
    const bool zoomActive = zoom && zoom->isAnimating();
    const MediaTime tickDuration = MediaTime::make(1, m_pump.frameRate);
    if (!hasSignature || checksum != m_lastFrameChecksum || zoomActive) {
        m_lastFrameChecksum = checksum;
        VideoFrameHandle output = input;
        if (zoom) {
            zoom->updateAnimation(pts);
            if (VideoFrameHandle zoomed = zoom->processedPixelBuffer(input, false))
                output = std::move(zoomed);
        }
        if (writer->appendVideoPixelBuffer(*output, pts)) {
            std::lock_guard lock(m_mutex);
            m_lastVideoDuration = tickDuration;
        }
        m_lastProcessedFrame = output;
    } else if (m_lastProcessedFrame) {
        // An unchanged picture is not rendered again: the last written frame is repeated.
        if (writer->appendVideoPixelBuffer(*m_lastProcessedFrame, pts)) {
            std::lock_guard lock(m_mutex);
            m_lastVideoDuration = tickDuration;
        }
        ++m_skippedFrameCount;
    }
}

void RecordingFramePath::logFrameSkipStats() const {
    const int64_t emitted = m_pumpFramesEmitted.load();
    if (emitted <= 0)
        return;
    const int64_t skipped = m_skippedFrameCount.load();
    logLine("📊 Frame skip stats: {}/{} frames skipped ({:.1f}%)", skipped, emitted,
            100.0 * double(skipped) / double(emitted));
}

std::optional<MediaTime> RecordingFramePath::lastCapturedVideoPTS() const {
    std::lock_guard lock(m_mutex);
    return m_lastCapturedVideoPTS;
}

MediaTime RecordingFramePath::lastVideoDuration() const {
    std::lock_guard lock(m_mutex);
    return m_lastVideoDuration;
}

std::optional<double> RecordingFramePath::videoTimelineSeconds(const RecordingFramePath* path,
                                                               const MediaWriterEngine& writer) {
    const std::optional<MediaTime> sessionStart = writer.sessionStartTimeValue();
    if (!sessionStart)
        return std::nullopt;
    if (const auto lastCaptured = path ? path->lastCapturedVideoPTS() : std::nullopt)
        return std::max(lastCaptured->seconds() - writer.currentTimeOffset().seconds() -
                            sessionStart->seconds(),
                        0.0);
    if (const std::optional<MediaTime> last = writer.lastPresentationTime())
        return std::max(last->seconds() - sessionStart->seconds(), 0.0);
    return std::nullopt;
}
