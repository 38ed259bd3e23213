#include "core/recording/StreamRecovery.h"

#include "core/recording/RecordingClock.h"
#include "core/recording/RecordingTimekeeper.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/support/Log.h"

#include <exception>

StreamRecovery::StreamRecovery(RecordingClock& clock, RecordingTimekeeper& timekeeper,
                               Context context)
    : m_clock(clock), m_timekeeper(timekeeper), m_context(std::move(context)) {}

void StreamRecovery::logStreamError(const StreamError& error) {
    logLine("🛑 SCStream error: {} ({}) - {}", error.domain.toStdString(), error.code,
            error.description.toStdString());
    if (!error.userInfo.isEmpty())
        logLine("   userInfo: {}", error.userInfo.toStdString());
}

QCoro::Task<StreamRecovery::Outcome>
StreamRecovery::handleStreamInterruption(StreamError error, bool isRecordingActive) {
    if (m_context.isStoppingRecording() || !isRecordingActive ||
        m_isStreamRecoveryInProgress.load())
        co_return Outcome::ignored;
    logStreamError(error);
    m_isStreamRecoveryInProgress = true;
    m_awaitingStreamRestartFirstFrame = true;
    m_timekeeper.setStreamInterruptStartTime(m_clock.now());
    if (!m_context.isPaused())
        if (CameraCaptureEngine* camera = m_context.camera())
            camera->setRecordingPaused(true);
    m_context.stopPump();

    for (;;) {
        const int attempt = ++m_streamRecoveryAttempts;
        if (attempt > maxStreamRecoveryAttempts)
            break;
        const double delay = attempt * 0.5;
        logLine("♻️ Attempting stream recovery ({}/{}) after {}s", attempt,
                maxStreamRecoveryAttempts, formatDouble(delay));
        co_await m_clock.sleep(delay);
        if (m_context.isStoppingRecording()) {
            m_isStreamRecoveryInProgress = false;
            co_return Outcome::abandoned;
        }
        ScreenCaptureEngine* screen = m_context.screen();
        try {
            if (!screen)
                throw std::runtime_error("no screen capture engine");
            co_await screen->startCapture();
            m_isStreamRecoveryInProgress = false;
            m_streamRecoveryAttempts = 0;
            logLine("✅ Stream recovery started (attempt {})", attempt);
            // The restart is complete with the first frame: it carries the new time origin.
            co_return Outcome::recovered;
        } catch (const std::exception& failure) {
            logLine("❌ Stream recovery attempt {} failed: {}", attempt, failure.what());
        } catch (...) {
            logLine("❌ Stream recovery attempt {} failed: unknown error", attempt);
        }
    }
    m_isStreamRecoveryInProgress = false;
    co_return Outcome::gaveUp;
}

bool StreamRecovery::applyStreamRestartOffsetIfNeeded(MediaTime firstPTS, MediaTime frameDuration,
                                                      MediaTime lastVideoDuration) {
    if (!m_awaitingStreamRestartFirstFrame.exchange(false))
        return false;
    const MediaTime length = lastVideoDuration.isNumeric() && lastVideoDuration > MediaTime::zero()
                                 ? lastVideoDuration
                                 : frameDuration;
    if (MediaWriterEngine* writer = m_context.writer()) {
        if (const auto last = writer->lastPresentationTime()) {
            const MediaTime expected = *last + writer->currentTimeOffset() + length;
            const MediaTime gap = firstPTS - expected;
            if (gap > MediaTime::zero()) {
                writer->addTimeOffset(gap);
                logLine("⏱️ Applied stream recovery time offset: {:.3f}s", gap.seconds());
            }
        }
    }
    return true;
}

void StreamRecovery::takeDowntime() {
    if (const auto& start = m_timekeeper.streamInterruptStartTime()) {
        const double downtime = double(start->msecsTo(m_clock.now())) / 1000.0;
        m_timekeeper.addTimeOffset(downtime);
        if (downtime > 0)
            if (CameraCaptureEngine* camera = m_context.camera())
                camera->addTimeOffset(MediaTime::fromSeconds(downtime, 600));
        logLine("⏱️ Stream downtime: {:.2f}s", downtime);
        m_timekeeper.setStreamInterruptStartTime(std::nullopt);
    }
    if (!m_context.isPaused())
        if (CameraCaptureEngine* camera = m_context.camera())
            camera->setRecordingPaused(false);
}

bool StreamRecovery::claimWriterFailure() {
    MediaWriterEngine* writer = m_context.writer();
    if (m_didHandleWriterFailure.load() || !writer || !writer->hasFailed())
        return false;
    return !m_didHandleWriterFailure.exchange(true);
}

void StreamRecovery::reset() {
    m_isStreamRecoveryInProgress = false;
    m_awaitingStreamRestartFirstFrame = false;
    m_didHandleWriterFailure = false;
    m_streamRecoveryAttempts = 0;
    m_timekeeper.setStreamInterruptStartTime(std::nullopt);
}
