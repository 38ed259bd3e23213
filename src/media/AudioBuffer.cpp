#include "media/AudioBuffer.h"

#include "media/FFmpegHandles.h"

namespace {
std::shared_ptr<AVFrame> share(AVFrame* frame) {
    return std::shared_ptr<AVFrame>(frame, [](AVFrame* f) { av_frame_free(&f); });
}

AVFramePtr describe(int channelCount, int sampleRate, int sampleCount) {
    AVFramePtr frame(av_frame_alloc());
    if (!frame)
        return frame;
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->sample_rate = sampleRate;
    frame->nb_samples = sampleCount;
    av_channel_layout_default(&frame->ch_layout, channelCount);
    return frame;
}
} // namespace

AudioBuffer AudioBuffer::adopt(AVFrame* frame, MediaTime presentationTime) {
    AudioBuffer result;
    if (!frame)
        return result;
    result.m_frame = share(frame);
    result.presentationTime = presentationTime;
    return result;
}

AudioBuffer AudioBuffer::allocate(int channelCount, int sampleRate, int sampleCount,
                                  MediaTime presentationTime) {
    if (channelCount <= 0 || channelCount > AV_NUM_DATA_POINTERS || sampleRate <= 0 ||
        sampleCount < 0)
        return {};
    AVFramePtr frame = describe(channelCount, sampleRate, sampleCount);
    if (!frame || av_frame_get_buffer(frame.get(), 0) < 0)
        return {};
    return adopt(frame.release(), presentationTime);
}

int AudioBuffer::channelCount() const {
    return m_frame ? m_frame->ch_layout.nb_channels : 0;
}
int AudioBuffer::sampleRate() const {
    return m_frame ? m_frame->sample_rate : 0;
}
int AudioBuffer::sampleCount() const {
    return m_frame ? m_frame->nb_samples : 0;
}

const float* AudioBuffer::channelData(int channel) const {
    if (!m_frame || channel < 0 || channel >= channelCount())
        return nullptr;
    return reinterpret_cast<const float*>(m_frame->extended_data[channel]);
}

float* AudioBuffer::mutableChannelData(int channel) {
    return const_cast<float*>(static_cast<const AudioBuffer*>(this)->channelData(channel));
}

MediaTime AudioBuffer::duration() const {
    if (!m_frame || m_frame->sample_rate <= 0)
        return MediaTime::invalid();
    return MediaTime::make(m_frame->nb_samples, m_frame->sample_rate);
}

AudioBuffer AudioBuffer::withPresentationTime(MediaTime pts) const {
    AudioBuffer copy = *this;
    copy.presentationTime = pts;
    return copy;
}

AudioBufferPool::AudioBufferPool(int channelCount, int sampleRate, int maxSamples)
    : m_channelCount(channelCount), m_sampleRate(sampleRate), m_maxSamples(maxSamples) {
    if (channelCount > 0 && channelCount <= AV_NUM_DATA_POINTERS && maxSamples > 0)
        m_pool = av_buffer_pool_init(size_t(maxSamples) * sizeof(float), nullptr);
}

AudioBufferPool::~AudioBufferPool() {
    av_buffer_pool_uninit(&m_pool);
}

AudioBuffer AudioBufferPool::makeBuffer(int sampleCount, MediaTime presentationTime) {
    if (!m_pool || sampleCount < 0 || sampleCount > m_maxSamples)
        return {};
    AVFramePtr frame = describe(m_channelCount, m_sampleRate, sampleCount);
    if (!frame)
        return {};
    // One pooled buffer per channel plane.
    for (int channel = 0; channel < m_channelCount; ++channel) {
        frame->buf[channel] = av_buffer_pool_get(m_pool);
        if (!frame->buf[channel])
            return {};
        frame->data[channel] = frame->buf[channel]->data;
    }
    frame->extended_data = frame->data;
    frame->linesize[0] = int(m_maxSamples * sizeof(float));
    return AudioBuffer::adopt(frame.release(), presentationTime);
}
