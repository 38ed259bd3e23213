#include "media/MediaWriter.h"

#include "core/support/Log.h"
#include "media/AlphaChannelRecorder.h"
#include "media/VideoCodecSettings.h"
#include "media/encoding/MovieFileEncoder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {
// Refusals are counted for the whole recording but logged only for the first few.
constexpr int loggedRefusals = 3;
constexpr int loggedMicrophoneAdjustments = 3;

std::string qualityText(VideoQuality quality) {
    return formatDouble(rawValue(quality));
}
} // namespace

MediaWriter::MediaWriter(EncoderTuning tuning) : m_tuning(std::move(tuning)) {}

// Destroying the encoder stops its worker; an unfinished file stays as its fragments left it.
MediaWriter::~MediaWriter() = default;

int MediaWriter::calculateBitrate(int width, int height, int frameRate, VideoQuality quality,
                                  VideoEncoder codec) {
    double rate = frameRate / 8.0;
    double codecFactor = codec == VideoEncoder::h265 ? 0.5 : 0.9;
    double pixels = double(std::max(600, width)) * double(std::max(600, height));
    double scale = 1.0 - std::log10(std::sqrt(pixels) * rate) / 5.0;
    double factor = 1.0;
    switch (quality) {
    case VideoQuality::low:
        factor = std::max(0.1, scale);
        break;
    case VideoQuality::medium:
        factor = std::max(0.4, std::min(0.6, 3.0 * scale));
        break;
    case VideoQuality::high:
        factor = 1.0;
        break;
    }
    double product = pixels * rate * codecFactor * factor;
    // Only a broken frame rate (a non-finite product) gets here; there is no sane file to write.
    if (!std::isfinite(product))
        std::abort();
    return std::max(200000, static_cast<int>(product));
}

void MediaWriter::configure(const WriterConfiguration& configuration) {
    m_configuration = configuration;
    m_outputURL = configuration.outputURL;
    if (configuration.outputURL.empty())
        throw MediaWriterError::writerInitializationFailed();
    std::filesystem::path folder = configuration.outputURL.parent_path();
    if (folder.empty())
        folder = ".";
    if (::access(folder.c_str(), W_OK) != 0)
        throw MediaWriterError::writerInitializationFailed(configuration.outputURL.string() + ": " +
                                                           std::strerror(errno));
    m_assetWriter = std::make_unique<MovieFileEncoder>(configuration.outputURL,
                                                       configuration.outputFormat, m_tuning);
    if (configuration.videoSettings)
        configureVideoInput(*configuration.videoSettings);
    configureAudioInputs(configuration);
}

void MediaWriter::configureVideoInput(const WriterConfiguration::VideoSettings& settings) {
    logLine("📊 Video encoding settings:");
    logLine("   Resolution: {}x{}", settings.width, settings.height);
    logLine("   Frame rate: {} FPS", settings.frameRate);
    logLine("   Codec: {}", rawValue(settings.codec).toStdString());
    logLine("   Quality: {}", qualityText(settings.quality));
    logLine("   Alpha channel: {}", settings.hasAlphaChannel ? "true" : "false");

    VideoCodecSettings codecSettings;
    if (settings.hasAlphaChannel && settings.alphaCodec) {
        AlphaVideoCodec codec = *settings.alphaCodec;
        logLine("   Alpha codec: {}", displayName(codec));
        if (!AlphaChannelRecorder::isCodecSupported(codec))
            throw MediaWriterError::alphaCodecNotSupported(codec);
        AlphaChannelRecorder::validateResolution(settings.width, settings.height, codec);
        codecSettings = AlphaChannelRecorder::videoSettings(settings.width, settings.height, codec,
                                                            rawValue(settings.quality));
    } else {
        int bitrate = calculateBitrate(settings.width, settings.height, settings.frameRate,
                                       settings.quality, settings.codec);
        logLine("   Target bitrate: {} Mbps", bitrate / 1000000);
        codecSettings.codec = settings.codec == VideoEncoder::h265
                                  ? VideoCodecSettings::Codec::hevc
                                  : VideoCodecSettings::Codec::h264;
        codecSettings.width = settings.width;
        codecSettings.height = settings.height;
        codecSettings.averageBitRate = bitrate;
        codecSettings.expectedSourceFrameRate = settings.frameRate;
    }
    codecSettings.colorProperties = settings.colorSpace;
    std::string error;
    m_videoInput = m_assetWriter->addVideoTrack(codecSettings, error);
    if (m_videoInput < 0) {
        logLine("❌ No video encoder for {}x{}: {}", settings.width, settings.height, error);
        throw MediaWriterError::cannotAddInput("video");
    }
    logLine("✅ Video encoder: {}", m_assetWriter->videoEncoderName());
}

void MediaWriter::configureAudioInputs(const WriterConfiguration& configuration) {
    std::string error;
    if (configuration.separateAudioTracks) {
        logLine("📊 Configuring separate audio tracks (system + microphone)");
        m_systemAudioInput = m_assetWriter->addAudioTrack(configuration.audioSettings, error);
        if (m_systemAudioInput < 0) {
            logLine("❌ No audio encoder: {}", error);
            throw MediaWriterError::cannotAddInput("system audio");
        }
        logLine("✅ Added system audio input");
        m_microphoneAudioInput = m_assetWriter->addAudioTrack(configuration.audioSettings, error);
        if (m_microphoneAudioInput < 0) {
            logLine("❌ No audio encoder: {}", error);
            throw MediaWriterError::cannotAddInput("microphone audio");
        }
        logLine("✅ Added microphone audio input");
        return;
    }
    logLine("📊 Configuring single audio track");
    m_systemAudioInput = m_assetWriter->addAudioTrack(configuration.audioSettings, error);
    if (m_systemAudioInput < 0) {
        logLine("❌ No audio encoder: {}", error);
        throw MediaWriterError::cannotAddInput("audio");
    }
    logLine("✅ Added audio input");
}

std::string MediaWriter::statusDescription() const {
    return m_assetWriter ? description(m_assetWriter->status()) : "unknown";
}

void MediaWriter::startWriting() {
    if (!m_assetWriter)
        throw MediaWriterError::writerNotConfigured();
    if (m_assetWriter->status() != MovieFileEncoder::Status::unknown)
        throw MediaWriterError::invalidState(statusDescription());
    if (!m_assetWriter->startWriting()) {
        m_hasFailed = true;
        std::optional<std::string> error = m_assetWriter->error();
        {
            std::lock_guard lock(m_timingMutex);
            m_lastError = error;
        }
        throw MediaWriterError::writingFailed(error);
    }
    // A name already taken got a number: the file is where the encoder created it.
    m_outputURL = m_assetWriter->path();
    m_createdFile = true;
}

void MediaWriter::startSession(MediaTime sourceTime) {
    if (!m_assetWriter)
        throw MediaWriterError::writerNotConfigured();
    if (m_assetWriter->status() != MovieFileEncoder::Status::writing)
        throw MediaWriterError::invalidState(statusDescription());
    if (m_isWriting)
        return;
    {
        std::lock_guard lock(m_timingMutex);
        m_sessionStartTime = sourceTime;
        m_sessionStartHostTime = MediaTime::hostTimeNow();
    }
    m_assetWriter->startSession(sourceTime);
    m_isWriting = true;
}

void MediaWriter::countVideoRefusal(const char* reason) {
    int count = ++m_videoAppendFailureCount;
    if (count <= loggedRefusals)
        logLine("⚠️ appendVideoBuffer: {}", reason);
}

void MediaWriter::latchFailure() {
    if (m_didLogWriterFailure.exchange(true))
        return;
    m_hasFailed = true;
    std::optional<std::string> error = m_assetWriter->error();
    {
        std::lock_guard lock(m_timingMutex);
        m_lastError = error;
    }
    logLine("❌ AssetWriter failed: {}", error.value_or("unknown error"));
}

bool MediaWriter::appendVideoBuffer(const VideoFrame& sample) {
    if (!m_isWriting) {
        countVideoRefusal("isWriting is false");
        return false;
    }
    if (m_videoInput < 0) {
        countVideoRefusal("videoInput is nil");
        return false;
    }
    if (!m_assetWriter->isReadyForMoreMediaData(m_videoInput)) {
        // A failed file is also never ready; it is latched below and not counted as a refusal.
        if (m_assetWriter->status() != MovieFileEncoder::Status::failed) {
            countVideoRefusal("input not ready for more data");
            ++m_droppedVideoFrames;
            return false;
        }
    }
    if (m_assetWriter->status() == MovieFileEncoder::Status::failed) {
        latchFailure();
        return false;
    }
    VideoFrame buffer = sample;
    MediaTime offset = currentTimeOffset();
    if (offset != MediaTime::zero()) {
        if (auto adjusted = adjustTime(sample, offset))
            buffer = *adjusted;
    }
    MediaTime pts = buffer.presentationTime;
    MediaTime duration = buffer.duration;
    {
        std::lock_guard lock(m_timingMutex);
        m_lastPTS = duration.isNumeric() && duration.value > 0 ? pts + duration : pts;
    }
    bool appended = m_assetWriter->appendVideo(m_videoInput, std::move(buffer));
    if (!appended) {
        std::optional<std::string> error = m_assetWriter->error();
        logLine("❌ Failed to append video buffer. Writer status: {}, error: {}",
                statusDescription(), error.value_or("none"));
    }
    return appended;
}

bool MediaWriter::appendVideoPixelBuffer(const VideoFrame& pixels, MediaTime pts) {
    if (!m_isWriting || m_videoInput < 0 || !m_assetWriter->isReadyForMoreMediaData(m_videoInput))
        return false;
    MediaTime offset = currentTimeOffset();
    MediaTime adjusted = offset != MediaTime::zero() ? pts - offset : pts;
    bool appended = m_assetWriter->appendVideo(
        m_videoInput, pixels.withTiming(adjusted, pixels.duration, MediaTime::invalid()));
    if (appended) {
        std::lock_guard lock(m_timingMutex);
        m_lastPTS = adjusted;
    }
    return appended;
}

bool MediaWriter::appendAudioBuffer(const AudioBuffer& sample, int track, bool isMicrophoneAudio) {
    if (!m_isWriting)
        return false;
    if (m_assetWriter->status() == MovieFileEncoder::Status::failed) {
        latchFailure();
        return false;
    }
    int input = track == 0 ? m_systemAudioInput : m_microphoneAudioInput;
    if (input < 0) {
        if (track == 1)
            logLine("❌ Microphone audio input is nil");
        return false;
    }
    if (!m_assetWriter->isReadyForMoreMediaData(input)) {
        ++m_droppedAudioBuffers;
        return false;
    }

    AudioBuffer buffer = sample;
    std::optional<MediaTime> sessionStart;
    std::optional<MediaTime> hostStart;
    MediaTime offset;
    {
        std::lock_guard lock(m_timingMutex);
        sessionStart = m_sessionStartTime;
        hostStart = m_sessionStartHostTime;
        offset = m_timeOffset;
    }
    // The microphone is stamped with the host clock; the session's two readings, taken at the
    // same moment, carry it onto the video's time line. Only then does the pause offset apply.
    if (isMicrophoneAudio && sessionStart && hostStart) {
        MediaTime original = buffer.presentationTime;
        MediaTime elapsed = original - *hostStart;
        MediaTime newPTS = *sessionStart + elapsed;
        int count = ++m_micAudioDebugCount;
        if (count <= loggedMicrophoneAdjustments) {
            logLine("🔧 Mic audio timestamp adjustment:");
            logLine("   Original PTS: {}", formatDouble(original.seconds()));
            logLine("   Session start (video): {}", formatDouble(sessionStart->seconds()));
            logLine("   Host start: {}", formatDouble(hostStart->seconds()));
            logLine("   Elapsed: {}", formatDouble(elapsed.seconds()));
            logLine("   New PTS: {}", formatDouble(newPTS.seconds()));
        }
        if (auto moved = adjustTimestamp(buffer, newPTS))
            buffer = *moved;
    }
    if (offset != MediaTime::zero()) {
        if (auto adjusted = adjustTime(buffer, offset))
            buffer = *adjusted;
    }
    // Where the microphone shares an input with system audio, the two are summed there.
    return m_assetWriter->appendAudio(input, std::move(buffer), isMicrophoneAudio ? 1 : 0);
}

void MediaWriter::addTimeOffset(MediaTime offset) {
    std::lock_guard lock(m_timingMutex);
    m_timeOffset = m_timeOffset == MediaTime::zero() ? offset : m_timeOffset + offset;
}

std::filesystem::path MediaWriter::finishWriting() {
    if (!m_assetWriter)
        throw MediaWriterError::writerNotConfigured();
    if (!m_isWriting)
        throw MediaWriterError::notWriting();
    m_assetWriter->finishWriting();
    m_isWriting = false;
    // The encoder's queue is bounded: when it or the disk fell behind, what had no room was
    // dropped rather than held, and the recording says so once, here.
    if (m_droppedVideoFrames > 0 || m_droppedAudioBuffers > 0)
        logLine("⚠️ Writer fell behind: {} video frames and {} audio buffers dropped",
                m_droppedVideoFrames.load(), m_droppedAudioBuffers.load());
    switch (m_assetWriter->status()) {
    case MovieFileEncoder::Status::completed:
        if (!m_outputURL || m_outputURL->empty())
            throw MediaWriterError::outputURLMissing();
        return *m_outputURL;
    case MovieFileEncoder::Status::failed:
        throw MediaWriterError::writingFailed(m_assetWriter->error());
    default:
        throw MediaWriterError::invalidState(statusDescription());
    }
}

void MediaWriter::cancel() {
    if (m_assetWriter)
        m_assetWriter->cancelWriting();
    m_isWriting = false;
    // Only a file this writer made: before startWriting the name may be another recording's.
    if (m_createdFile && m_outputURL && !m_outputURL->empty()) {
        std::error_code ignored;
        std::filesystem::remove(*m_outputURL, ignored);
    }
}

void MediaWriter::abandon() {
    if (m_assetWriter)
        m_assetWriter->abandonWriting();
    m_isWriting = false;
}

std::optional<std::string> MediaWriter::lastError() const {
    std::lock_guard lock(m_timingMutex);
    return m_lastError;
}

std::optional<MediaTime> MediaWriter::lastPresentationTime() const {
    std::lock_guard lock(m_timingMutex);
    return m_lastPTS;
}

std::optional<MediaTime> MediaWriter::sessionStartTimeValue() const {
    std::lock_guard lock(m_timingMutex);
    return m_sessionStartTime;
}

std::optional<MediaTime> MediaWriter::sessionStartHostTimeValue() const {
    std::lock_guard lock(m_timingMutex);
    return m_sessionStartHostTime;
}

MediaTime MediaWriter::currentTimeOffset() const {
    std::lock_guard lock(m_timingMutex);
    return m_timeOffset;
}

std::string MediaWriter::videoEncoderName() const {
    return m_assetWriter ? m_assetWriter->videoEncoderName() : std::string();
}

std::optional<VideoFrame> MediaWriter::adjustTime(const VideoFrame& sample, MediaTime offset) {
    if (sample.isNull())
        return std::nullopt;
    MediaTime pts = sample.presentationTime - offset;
    if (!pts.isValid())
        return std::nullopt;
    return sample.withTiming(pts, sample.duration, sample.decodeTime - offset);
}

std::optional<AudioBuffer> MediaWriter::adjustTime(const AudioBuffer& sample, MediaTime offset) {
    if (sample.isNull())
        return std::nullopt;
    MediaTime pts = sample.presentationTime - offset;
    if (!pts.isValid())
        return std::nullopt;
    return sample.withPresentationTime(pts);
}

std::optional<VideoFrame> MediaWriter::adjustTimestamp(const VideoFrame& sample, MediaTime target) {
    if (sample.isNull())
        return std::nullopt;
    MediaTime delta = target - sample.presentationTime;
    MediaTime pts = sample.presentationTime + delta;
    if (!pts.isValid())
        return std::nullopt;
    MediaTime decode = sample.decodeTime.isValid() ? sample.decodeTime + delta : sample.decodeTime;
    return sample.withTiming(pts, sample.duration, decode);
}

std::optional<AudioBuffer> MediaWriter::adjustTimestamp(const AudioBuffer& sample,
                                                        MediaTime target) {
    if (sample.isNull())
        return std::nullopt;
    MediaTime pts = sample.presentationTime + (target - sample.presentationTime);
    if (!pts.isValid())
        return std::nullopt;
    return sample.withPresentationTime(pts);
}
