#include "platform/pulse/PulseRecordStream.h"

#include "core/support/Log.h"

#include <cstring>
#include <stdexcept>
#include <vector>

namespace {
// Fragments of 20 ms: the delivery time stays close to the capture time, at 50 wake-ups a second
// per stream.
constexpr int fragmentMilliseconds = 20;
constexpr pa_usec_t silenceTickMicroseconds = 20000;

MediaTime secondsOf(int64_t frames, int rate) {
    return MediaTime::make(frames, rate);
}
} // namespace

PulseRecordStream::PulseRecordStream(PulseConnection& connection, PulseConnection::Source source,
                                     std::string label, Handler handler)
    : m_connection(connection), m_source(std::move(source)), m_label(std::move(label)),
      m_handler(std::move(handler)) {}

PulseRecordStream::~PulseRecordStream() {
    stop();
}

void PulseRecordStream::start() {
    if (m_stream)
        return;
    AVChannelLayout input{};
    AVChannelLayout output{};
    av_channel_layout_default(&input, m_source.channelCount);
    av_channel_layout_default(&output, outputChannelCount);
    SwrContext* resampler = nullptr;
    int result = swr_alloc_set_opts2(&resampler, &output, AV_SAMPLE_FMT_FLTP, outputSampleRate,
                                     &input, AV_SAMPLE_FMT_FLT, m_source.sampleRate, 0, nullptr);
    m_resampler.reset(resampler);
    if (result < 0 || swr_init(resampler) < 0)
        throw std::runtime_error("cannot convert " + std::to_string(m_source.sampleRate) +
                                 " Hz / " + std::to_string(m_source.channelCount) +
                                 " ch audio of \"" + m_source.name + "\"");

    PaMainloopLock lock(m_connection.mainloop());
    const pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32NE, uint32_t(m_source.sampleRate),
                                      uint8_t(m_source.channelCount)};
    m_stream.reset(pa_stream_new(m_connection.context(), m_label.c_str(), &sampleFormat, nullptr));
    if (!m_stream)
        throw std::runtime_error("the sound server refused a stream for \"" + m_source.name +
                                 "\": " + pa_strerror(pa_context_errno(m_connection.context())));
    pa_stream_set_read_callback(m_stream.get(), onRead, this);
    pa_stream_set_state_callback(m_stream.get(), onState, this);
    pa_buffer_attr attributes{};
    attributes.maxlength = uint32_t(-1);
    attributes.fragsize = uint32_t(pa_usec_to_bytes(fragmentMilliseconds * 1000, &sampleFormat));
    m_stopping = false;
    m_deliveredEnd = MediaTime::invalid();
    m_clock.reset();
    // Not moved to another device when this one goes: a recording hears what it was asked to.
    const auto flags = pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
    if (pa_stream_connect_record(m_stream.get(), m_source.name.c_str(), &attributes, flags) < 0) {
        const std::string reason = pa_strerror(pa_context_errno(m_connection.context()));
        m_stream.reset();
        throw std::runtime_error("cannot record \"" + m_source.name + "\": " + reason);
    }
    for (;;) {
        const pa_stream_state_t state = pa_stream_get_state(m_stream.get());
        if (state == PA_STREAM_READY) {
            m_running = true;
            return;
        }
        if (!PA_STREAM_IS_GOOD(state)) {
            const std::string reason = pa_strerror(pa_context_errno(m_connection.context()));
            m_stream.reset();
            throw std::runtime_error("cannot record \"" + m_source.name + "\": " + reason);
        }
        pa_threaded_mainloop_wait(m_connection.mainloop());
    }
}

void PulseRecordStream::stop() {
    PaMainloopLock lock(m_connection.mainloop());
    m_stopping = true;
    m_running = false;
    if (m_silenceTimer) {
        pa_threaded_mainloop_get_api(m_connection.mainloop())->time_free(m_silenceTimer);
        m_silenceTimer = nullptr;
    }
    m_stream.reset();
}

void PulseRecordStream::onRead(pa_stream*, size_t, void* self) {
    static_cast<PulseRecordStream*>(self)->readAvailable();
}

void PulseRecordStream::onState(pa_stream* stream, void* self) {
    auto* owner = static_cast<PulseRecordStream*>(self);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    pa_threaded_mainloop_signal(owner->m_connection.mainloop(), 0);
    if ((state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) && owner->m_running &&
        !owner->m_stopping && !owner->m_silenceTimer)
        owner->beginSilence();
}

void PulseRecordStream::readAvailable() {
    const MediaTime now = MediaTime::hostTimeNow();
    const size_t frameBytes = sizeof(float) * size_t(m_source.channelCount);
    size_t remaining = pa_stream_readable_size(m_stream.get());
    if (remaining == size_t(-1))
        return;
    while (remaining > 0) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(m_stream.get(), &data, &bytes) < 0 || bytes == 0)
            return;
        const int frames = int(bytes / frameBytes);
        // What is still readable, this fragment included, ends now, or a little earlier.
        const MediaTime start = m_clock.stamp(
            now - secondsOf(int64_t(remaining / frameBytes), m_source.sampleRate), frames);
        if (data) {
            deliver(static_cast<const float*>(data), frames, start);
        } else {
            deliverSilence(int(int64_t(frames) * outputSampleRate / m_source.sampleRate), start);
        }
        pa_stream_drop(m_stream.get());
        remaining = bytes >= remaining ? 0 : remaining - bytes;
    }
}

void PulseRecordStream::deliver(const float* interleaved, int frames, MediaTime start) {
    if (frames <= 0)
        return;
    // Samples still inside the resampler come out first, so the output starts that much earlier.
    const int64_t delayed = swr_get_delay(m_resampler.get(), outputSampleRate);
    const int capacity = swr_get_out_samples(m_resampler.get(), frames);
    if (capacity <= 0)
        return;
    AudioBuffer buffer = AudioBuffer::allocate(outputChannelCount, outputSampleRate, capacity,
                                               start - secondsOf(delayed, outputSampleRate));
    if (buffer.isNull())
        return;
    AVFrame* frame = const_cast<AVFrame*>(buffer.avFrame());
    const uint8_t* input[] = {reinterpret_cast<const uint8_t*>(interleaved)};
    const int converted =
        swr_convert(m_resampler.get(), frame->extended_data, capacity, input, frames);
    if (converted <= 0)
        return;
    frame->nb_samples = converted;
    m_deliveredEnd = buffer.presentationTime + buffer.duration();
    m_handler(buffer);
}

void PulseRecordStream::deliverSilence(int frames, MediaTime start) {
    if (frames <= 0)
        return;
    AudioBuffer buffer = AudioBuffer::allocate(outputChannelCount, outputSampleRate, frames, start);
    if (buffer.isNull())
        return;
    for (int channel = 0; channel < outputChannelCount; ++channel)
        std::memset(buffer.mutableChannelData(channel), 0, sizeof(float) * size_t(frames));
    m_deliveredEnd = start + buffer.duration();
    m_handler(buffer);
}

void PulseRecordStream::beginSilence() {
    logLine("⚠️ {} source \"{}\" is gone; recording silence in its place", m_label,
            m_source.name);
    if (!m_deliveredEnd.isValid())
        m_deliveredEnd = MediaTime::hostTimeNow();
    m_silenceTimer = pa_context_rttime_new(
        m_connection.context(), pa_rtclock_now() + silenceTickMicroseconds, onSilenceTick, this);
}

void PulseRecordStream::onSilenceTick(pa_mainloop_api*, pa_time_event* event, const timeval*,
                                      void* self) {
    auto* owner = static_cast<PulseRecordStream*>(self);
    if (owner->m_stopping)
        return;
    // Whole samples up to now, continuing where the last block ended, so the clock never drifts.
    const MediaTime elapsed = MediaTime::hostTimeNow() - owner->m_deliveredEnd;
    const int64_t frames = int64_t(elapsed.seconds() * outputSampleRate);
    if (frames > 0)
        owner->deliverSilence(int(frames), owner->m_deliveredEnd);
    pa_context_rttime_restart(owner->m_connection.context(), event,
                              pa_rtclock_now() + silenceTickMicroseconds);
}
