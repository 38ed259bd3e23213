#pragma once

#include "core/model/RecordingOptions.h"
#include "core/model/WriterConfiguration.h"
#include "core/time/MediaTime.h"
#include "media/AudioBuffer.h"
#include "media/MediaWriterError.h"
#include "media/VideoFrame.h"
#include "media/encoding/EncoderTuning.h"

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class MovieFileEncoder;

// Turns captured frames and audio into one movie file, and keeps the recording's time line
// continuous: pause and restart offsets are subtracted here, and microphone audio stamped with
// the host clock is moved onto the video's time line here.
//
// Calling order: configure, startWriting, startSession, appends and addTimeOffset, then
// finishWriting or cancel. Set-up and finishing run on one controlling thread and throw
// MediaWriterError. The appends run on the capture threads, never throw and never wait: the
// encoding happens on the file's own worker, and a frame the worker has no room for is refused.
// addTimeOffset may come from any thread. One MediaWriter writes one file; it is not reused.
class MediaWriter final {
public:
    explicit MediaWriter(EncoderTuning tuning = {});
    ~MediaWriter();
    MediaWriter(const MediaWriter&) = delete;
    MediaWriter& operator=(const MediaWriter&) = delete;

    void configure(const WriterConfiguration& configuration);
    void startWriting();
    // Pairs the video's source time with the host clock; a second call changes nothing.
    void startSession(MediaTime sourceTime);

    bool appendVideoBuffer(const VideoFrame& sample);
    bool appendVideoPixelBuffer(const VideoFrame& pixels, MediaTime pts);
    bool appendAudioBuffer(const AudioBuffer& sample, int track, bool isMicrophoneAudio = false);
    void addTimeOffset(MediaTime offset);

    // Completes the file and returns its path; blocks until the worker has written everything,
    // so call it off the interface thread.
    std::filesystem::path finishWriting();
    // Stops and removes the file it created; never throws.
    void cancel();
    // Stops, keeping the file as far as it reached the disk and marked unfinished: for a
    // recording that cannot be finished, whose file salvageRecording (RecordingSalvage.h) then
    // closes into a playable one. A writer that still works is better finished, which keeps
    // everything. Never throws.
    void abandon();

    bool isWriting() const { return m_isWriting.load(); }
    bool hasFailed() const { return m_hasFailed.load(); }
    std::optional<std::string> lastError() const;
    std::optional<MediaTime> lastPresentationTime() const;
    std::optional<MediaTime> sessionStartTimeValue() const;
    std::optional<MediaTime> sessionStartHostTimeValue() const;
    MediaTime currentTimeOffset() const;
    int videoAppendFailureCount() const { return m_videoAppendFailureCount.load(); }
    int micAudioDebugCount() const { return m_micAudioDebugCount.load(); }
    // Frames and buffers refused because the encoder's bounded queue was full (the encoder or
    // the disk fell behind); reported in one line when the file is finished.
    int64_t droppedVideoFrameCount() const { return m_droppedVideoFrames.load(); }
    int64_t droppedAudioBufferCount() const { return m_droppedAudioBuffers.load(); }
    const std::optional<WriterConfiguration>& configuration() const { return m_configuration; }
    // The configured path; after startWriting the file actually created, which has a number
    // added when the configured name was taken.
    const std::optional<std::filesystem::path>& outputURL() const { return m_outputURL; }
    // The encoder that writes the video track ("libx264", "h264_vaapi", "prores_aw"...).
    std::string videoEncoderName() const;

    // Target bits per second for H.264/H.265 at a size, rate and quality.
    static int calculateBitrate(int width, int height, int frameRate, VideoQuality quality,
                                VideoEncoder codec);

    // Copies with new timing that share the samples; nothing for an empty sample or a time that
    // cannot be computed. adjustTime moves by -offset, adjustTimestamp moves the start to target.
    static std::optional<VideoFrame> adjustTime(const VideoFrame& sample, MediaTime offset);
    static std::optional<AudioBuffer> adjustTime(const AudioBuffer& sample, MediaTime offset);
    static std::optional<VideoFrame> adjustTimestamp(const VideoFrame& sample, MediaTime target);
    static std::optional<AudioBuffer> adjustTimestamp(const AudioBuffer& sample, MediaTime target);

private:
    void configureVideoInput(const WriterConfiguration::VideoSettings& settings);
    void configureAudioInputs(const WriterConfiguration& configuration);
    void countVideoRefusal(const char* reason);
    void latchFailure();
    std::string statusDescription() const;

    const EncoderTuning m_tuning;
    std::unique_ptr<MovieFileEncoder> m_assetWriter;
    int m_videoInput = -1;
    int m_systemAudioInput = -1;
    int m_microphoneAudioInput = -1;
    std::optional<std::filesystem::path> m_outputURL;
    bool m_createdFile = false;
    std::optional<WriterConfiguration> m_configuration;

    std::atomic<bool> m_isWriting{false};
    std::atomic<bool> m_didLogWriterFailure{false};
    std::atomic<bool> m_hasFailed{false};
    std::atomic<int> m_videoAppendFailureCount{0};
    std::atomic<int> m_micAudioDebugCount{0};
    std::atomic<int64_t> m_droppedVideoFrames{0};
    std::atomic<int64_t> m_droppedAudioBuffers{0};

    // Guards the few time values below. Held only to copy or update them, never across an
    // append, so the capture threads that share it never wait for more than a few instructions.
    mutable std::mutex m_timingMutex;
    std::optional<MediaTime> m_sessionStartTime;
    std::optional<MediaTime> m_sessionStartHostTime;
    MediaTime m_timeOffset = MediaTime::zero();
    std::optional<MediaTime> m_lastPTS;
    std::optional<std::string> m_lastError;
};
