#pragma once

#include "core/recording/engines/MediaWriterEngine.h"
#include "media/MediaWriter.h"

// The coordinator's writer interface on the media layer's MediaWriter. Finishing blocks there,
// so it runs on a worker.
class MediaWriterAdapter final : public MediaWriterEngine {
public:
    explicit MediaWriterAdapter(EncoderTuning tuning = {}) : m_writer(tuning) {}

    void configure(const WriterConfiguration& configuration) override;
    void startWriting() override { m_writer.startWriting(); }
    void startSession(MediaTime at) override { m_writer.startSession(at); }
    bool isWriting() const override { return m_writer.isWriting(); }
    bool hasFailed() const override { return m_writer.hasFailed(); }
    std::optional<QString> lastError() const override {
        const auto error = m_writer.lastError();
        return error ? std::optional(QString::fromStdString(*error)) : std::nullopt;
    }
    bool appendVideoBuffer(const VideoFrame& frame) override {
        return m_writer.appendVideoBuffer(frame);
    }
    bool appendVideoPixelBuffer(const VideoFrame& frame, MediaTime pts) override {
        return m_writer.appendVideoPixelBuffer(frame, pts);
    }
    bool appendAudioBuffer(const AudioBuffer& buffer, int track, bool isMicrophone) override {
        return m_writer.appendAudioBuffer(buffer, track, isMicrophone);
    }
    void addTimeOffset(MediaTime offset) override { m_writer.addTimeOffset(offset); }
    std::optional<MediaTime> sessionStartTimeValue() const override {
        return m_writer.sessionStartTimeValue();
    }
    MediaTime currentTimeOffset() const override { return m_writer.currentTimeOffset(); }
    std::optional<MediaTime> lastPresentationTime() const override {
        return m_writer.lastPresentationTime();
    }
    QCoro::Task<QString> finishWriting() override;
    void cancel() override { m_writer.cancel(); }
    std::optional<QString> outputURL() const override {
        const auto& url = m_writer.outputURL();
        return url ? std::optional(QString::fromStdString(url->string())) : std::nullopt;
    }
    QCoro::Task<std::optional<QString>> salvage() override;

    const MediaWriter& writer() const { return m_writer; }

private:
    MediaWriter m_writer;
};
