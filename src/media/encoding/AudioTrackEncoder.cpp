#include "media/encoding/AudioTrackEncoder.h"

#include "media/encoding/PacketDrain.h"

#include "media/AudioBuffer.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

#include <cmath>
#include <vector>

namespace {
// Blocks from a sound server arrive with a few milliseconds of timestamp jitter; treating that
// as gaps would sprinkle clicks of silence through the track.
constexpr double jitterToleranceSeconds = 0.02;
// A longer hole than this is not padded with encoded silence; the track jumps instead.
constexpr double longestPaddedGapSeconds = 10.0;

const AVCodec* encoderFor(WriterConfiguration::AudioFormat format) {
    switch (format) {
    case WriterConfiguration::AudioFormat::aac:
        return avcodec_find_encoder_by_name("aac");
    case WriterConfiguration::AudioFormat::alac:
        return avcodec_find_encoder_by_name("alac");
    case WriterConfiguration::AudioFormat::flac:
        return avcodec_find_encoder_by_name("flac");
    case WriterConfiguration::AudioFormat::opus:
        if (const AVCodec* codec = avcodec_find_encoder_by_name("libopus"))
            return codec;
        return avcodec_find_encoder_by_name("opus");
    }
    return nullptr;
}

AVSampleFormat pickSampleFormat(const AVCodec* codec, WriterConfiguration::AudioFormat format) {
    // The lossless codecs get 16 bits, as a 16-bit depth hint asks; lossy ones take float.
    bool sixteenBits = format == WriterConfiguration::AudioFormat::alac ||
                       format == WriterConfiguration::AudioFormat::flac;
    std::vector<AVSampleFormat> preferred =
        sixteenBits ? std::vector{AV_SAMPLE_FMT_S16P, AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_S32P,
                                  AV_SAMPLE_FMT_S32}
                    : std::vector{AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S16P,
                                  AV_SAMPLE_FMT_S16};
    for (AVSampleFormat wanted : preferred) {
        for (const AVSampleFormat* offered = codec->sample_fmts;
             offered && *offered != AV_SAMPLE_FMT_NONE; ++offered) {
            if (*offered == wanted)
                return wanted;
        }
    }
    return codec->sample_fmts ? codec->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
}

int pickSampleRate(const AVCodec* codec, int wanted) {
    if (!codec->supported_samplerates)
        return wanted;
    int best = codec->supported_samplerates[0];
    for (const int* rate = codec->supported_samplerates; *rate; ++rate) {
        if (*rate == wanted)
            return wanted;
        if (std::abs(*rate - wanted) < std::abs(best - wanted))
            best = *rate;
    }
    return best;
}
} // namespace

std::unique_ptr<AudioTrackEncoder>
AudioTrackEncoder::create(const WriterConfiguration::AudioSettings& settings, bool globalHeader,
                          std::string& error) {
    const AVCodec* codec = encoderFor(settings.format);
    if (!codec || settings.channelCount < 1 || settings.sampleRate < 1) {
        error = "no " + rawValue(settings.format) + " encoder for " +
                std::to_string(settings.channelCount) + " channels at " +
                std::to_string(settings.sampleRate) + " Hz";
        return nullptr;
    }
    std::unique_ptr<AudioTrackEncoder> encoder(new AudioTrackEncoder());
    encoder->m_context.reset(avcodec_alloc_context3(codec));
    AVCodecContext* context = encoder->m_context.get();
    context->sample_fmt = pickSampleFormat(codec, settings.format);
    context->sample_rate = pickSampleRate(codec, settings.sampleRate);
    av_channel_layout_default(&context->ch_layout, settings.channelCount);
    context->time_base = AVRational{1, context->sample_rate};
    if (settings.format == WriterConfiguration::AudioFormat::aac ||
        settings.format == WriterConfiguration::AudioFormat::opus)
        context->bit_rate = settings.bitRate;
    if (settings.format == WriterConfiguration::AudioFormat::alac ||
        settings.format == WriterConfiguration::AudioFormat::flac)
        context->bits_per_raw_sample = 16;
    if (globalHeader)
        context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // FFmpeg's own opus encoder is marked experimental; it is only the fallback to libopus.
    context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    if (int result = avcodec_open2(context, codec, nullptr); result < 0) {
        error = std::string(codec->name) + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    bool variable =
        (codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) || context->frame_size <= 0;
    encoder->m_frameSize = variable ? 1024 : context->frame_size;
    encoder->m_fifo.reset(
        av_audio_fifo_alloc(context->sample_fmt, settings.channelCount, encoder->m_frameSize * 4));
    encoder->m_packet.reset(av_packet_alloc());
    if (!encoder->m_fifo || !encoder->m_packet) {
        error = ffmpegErrorText(AVERROR(ENOMEM));
        return nullptr;
    }
    return encoder;
}

AudioTrackEncoder::~AudioTrackEncoder() = default;

bool AudioTrackEncoder::needsIsoLayout() const {
    return m_context->codec_id == AV_CODEC_ID_FLAC || m_context->codec_id == AV_CODEC_ID_OPUS;
}

int AudioTrackEncoder::ensureResampler(const AudioBuffer& buffer) {
    if (m_resampler && buffer.sampleRate() == m_inputRate &&
        buffer.channelCount() == m_inputChannels)
        return 0;
    AVChannelLayout inputLayout{};
    av_channel_layout_default(&inputLayout, buffer.channelCount());
    SwrContext* resampler = nullptr;
    int result = swr_alloc_set_opts2(&resampler, &m_context->ch_layout, m_context->sample_fmt,
                                     m_context->sample_rate, &inputLayout, AV_SAMPLE_FMT_FLTP,
                                     buffer.sampleRate(), 0, nullptr);
    av_channel_layout_uninit(&inputLayout);
    m_resampler.reset(resampler);
    if (result < 0 || (result = swr_init(resampler)) < 0)
        return result;
    m_inputRate = buffer.sampleRate();
    m_inputChannels = buffer.channelCount();
    return 0;
}

int AudioTrackEncoder::writeSilence(int64_t samples) {
    uint8_t** silence = nullptr;
    int chunk = int(std::min<int64_t>(samples, 4096));
    int channels = m_context->ch_layout.nb_channels;
    if (av_samples_alloc_array_and_samples(&silence, nullptr, channels, chunk,
                                           m_context->sample_fmt, 0) < 0)
        return AVERROR(ENOMEM);
    av_samples_set_silence(silence, 0, chunk, channels, m_context->sample_fmt);
    int result = 0;
    for (int64_t left = samples; left > 0 && result >= 0; left -= chunk) {
        int count = int(std::min<int64_t>(left, chunk));
        result = av_audio_fifo_write(m_fifo.get(), reinterpret_cast<void**>(silence), count);
    }
    av_freep(&silence[0]);
    av_freep(&silence);
    return result < 0 ? result : 0;
}

int AudioTrackEncoder::encode(const AudioBuffer& buffer, double startSeconds,
                              const PacketSink& sink, int source) {
    if (buffer.isNull() || buffer.sampleCount() == 0)
        return 0;
    if (m_firstSource < 0)
        m_firstSource = source;
    const int rate = m_context->sample_rate;
    if (!m_mixer && source != m_firstSource) {
        // A second stream on this track: from here on the streams are summed, starting where the
        // first one has got to.
        const int64_t next = m_started ? m_fifoStart + av_audio_fifo_size(m_fifo.get()) : 0;
        m_mixer = std::make_unique<AudioTrackMixer>(m_context->ch_layout.nb_channels, rate, next);
        m_mixer->follow(m_firstSource, next);
    }
    if (!m_mixer || !m_mixer->accepts(buffer))
        return encodeContinuous(buffer, startSeconds, sink);
    m_mixer->add(source, buffer, std::llround(startSeconds * rate));
    return encodeMixed(sink, false);
}

int AudioTrackEncoder::encodeMixed(const PacketSink& sink, bool everything) {
    while (auto block = m_mixer->take(everything)) {
        const double start = double(block->start) / m_context->sample_rate;
        if (int result = encodeContinuous(block->buffer, start, sink); result < 0)
            return result;
    }
    return 0;
}

int AudioTrackEncoder::encodeContinuous(const AudioBuffer& buffer, double startSeconds,
                                        const PacketSink& sink) {
    if (int result = ensureResampler(buffer); result < 0)
        return result;
    int rate = m_context->sample_rate;
    int channels = m_context->ch_layout.nb_channels;
    int capacity = int(swr_get_out_samples(m_resampler.get(), buffer.sampleCount()));
    uint8_t** converted = nullptr;
    if (av_samples_alloc_array_and_samples(&converted, nullptr, channels, std::max(capacity, 1),
                                           m_context->sample_fmt, 0) < 0)
        return AVERROR(ENOMEM);
    const AVFrame* input = buffer.avFrame();
    int count = swr_convert(m_resampler.get(), converted, capacity,
                            const_cast<const uint8_t**>(input->extended_data), input->nb_samples);
    int result = count < 0 ? count : 0;
    if (count > 0) {
        int64_t start = std::llround(startSeconds * rate);
        int64_t skip = 0;
        int64_t tolerance = std::llround(jitterToleranceSeconds * rate);
        if (!m_started) {
            // Nothing before the file's zero is kept, and a track that begins later begins with
            // silence: without edit lists in a fragmented file, a late first sample would be
            // moved to zero by the muxer, and players that play audio back to back would then
            // play the whole track early.
            skip = std::max<int64_t>(0, -start);
            m_fifoStart = 0;
            m_started = true;
            if (start > 0 && start <= std::llround(longestPaddedGapSeconds * rate))
                result = writeSilence(start);
            else if (start > 0)
                m_fifoStart = start;
        } else {
            int64_t expected = m_fifoStart + av_audio_fifo_size(m_fifo.get());
            if (start > expected + tolerance) {
                if (start - expected <= std::llround(longestPaddedGapSeconds * rate)) {
                    result = writeSilence(start - expected);
                } else {
                    result = sendFrames(true, false, sink);
                    m_fifoStart = start;
                }
            } else if (start < expected - tolerance) {
                skip = expected - start;
            }
        }
        if (result >= 0 && skip < count) {
            int bytesPerSample = av_get_bytes_per_sample(m_context->sample_fmt);
            bool planar = av_sample_fmt_is_planar(m_context->sample_fmt);
            std::vector<void*> planes(size_t(planar ? channels : 1));
            for (size_t plane = 0; plane < planes.size(); ++plane)
                planes[plane] = converted[plane] + skip * bytesPerSample * (planar ? 1 : channels);
            result = av_audio_fifo_write(m_fifo.get(), planes.data(), int(count - skip));
            result = result < 0 ? result : sendFrames(false, false, sink);
        }
    }
    av_freep(&converted[0]);
    av_freep(&converted);
    return result;
}

int AudioTrackEncoder::sendFrames(bool final, bool atEnd, const PacketSink& sink) {
    while (av_audio_fifo_size(m_fifo.get()) >= m_frameSize ||
           (final && av_audio_fifo_size(m_fifo.get()) > 0)) {
        int available = av_audio_fifo_size(m_fifo.get());
        int samples = std::min(available, m_frameSize);
        // A short frame is allowed only as the very last one; a jump mid-track pads with silence.
        bool shortAllowed =
            (m_context->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) ||
            (atEnd && (m_context->codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME));
        AVFramePtr frame(av_frame_alloc());
        frame->nb_samples = shortAllowed ? samples : m_frameSize;
        frame->format = m_context->sample_fmt;
        frame->sample_rate = m_context->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &m_context->ch_layout);
        if (int result = av_frame_get_buffer(frame.get(), 0); result < 0)
            return result;
        if (frame->nb_samples > samples)
            av_samples_set_silence(frame->extended_data, samples, frame->nb_samples - samples,
                                   m_context->ch_layout.nb_channels, m_context->sample_fmt);
        av_audio_fifo_read(m_fifo.get(), reinterpret_cast<void**>(frame->extended_data), samples);
        frame->pts = m_fifoStart;
        m_fifoStart += samples;
        int result = avcodec_send_frame(m_context.get(), frame.get());
        if (result < 0)
            return result;
        if ((result = drain(sink)) < 0)
            return result;
    }
    return 0;
}

int AudioTrackEncoder::padTo(double endSeconds, const PacketSink& sink) {
    if (m_mixer)
        if (int result = encodeMixed(sink, true); result < 0)
            return result;
    if (!m_started)
        return 0;
    const int64_t expected = m_fifoStart + av_audio_fifo_size(m_fifo.get());
    const int64_t missing = std::llround(endSeconds * m_context->sample_rate) - expected;
    if (missing <= 0 || missing > m_context->sample_rate / 4)
        return 0;
    if (int result = writeSilence(missing); result < 0)
        return result;
    return sendFrames(false, false, sink);
}

int AudioTrackEncoder::flush(const PacketSink& sink) {
    if (m_mixer)
        if (int result = encodeMixed(sink, true); result < 0)
            return result;
    if (int result = sendFrames(true, true, sink); result < 0)
        return result;
    int result = avcodec_send_frame(m_context.get(), nullptr);
    if (result < 0 && result != AVERROR_EOF)
        return result;
    return drain(sink);
}

int AudioTrackEncoder::drain(const PacketSink& sink) {
    return drainEncoder(m_context.get(), m_packet.get(), sink);
}
