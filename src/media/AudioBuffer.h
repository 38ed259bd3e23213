#pragma once

#include "core/time/MediaTime.h"

#include <memory>

struct AVFrame;
struct AVBufferPool;

// A block of float planar audio with the time of its first sample: a reference-counted AVFrame
// shared by every copy, so new timing never copies samples. Samples are written only by the
// maker before the buffer is first shared. Thread-safe for reading.
class AudioBuffer final {
public:
    AudioBuffer() = default;
    // Takes ownership of a float planar AVFrame with reference-counted data.
    static AudioBuffer adopt(AVFrame* frame, MediaTime presentationTime);
    static AudioBuffer allocate(int channelCount, int sampleRate, int sampleCount,
                                MediaTime presentationTime);

    bool isNull() const { return !m_frame; }
    int channelCount() const;
    int sampleRate() const;
    int sampleCount() const;
    const float* channelData(int channel) const;
    float* mutableChannelData(int channel);
    const AVFrame* avFrame() const { return m_frame.get(); }
    // sampleCount / sampleRate, exact at the sample rate's timescale.
    MediaTime duration() const;

    AudioBuffer withPresentationTime(MediaTime presentationTime) const;

    MediaTime presentationTime = MediaTime::invalid();

private:
    std::shared_ptr<AVFrame> m_frame;
};

// Recycles audio blocks of one format and at most maxSamples samples. Thread-safe.
class AudioBufferPool final {
public:
    AudioBufferPool(int channelCount, int sampleRate, int maxSamples);
    ~AudioBufferPool();
    AudioBufferPool(const AudioBufferPool&) = delete;
    AudioBufferPool& operator=(const AudioBufferPool&) = delete;

    // A buffer of sampleCount (at most maxSamples) undefined samples; null if that is exceeded
    // or memory is exhausted.
    AudioBuffer makeBuffer(int sampleCount, MediaTime presentationTime);

private:
    int m_channelCount;
    int m_sampleRate;
    int m_maxSamples;
    AVBufferPool* m_pool =
        nullptr; // released by av_buffer_pool_uninit when the last buffer returns
};
