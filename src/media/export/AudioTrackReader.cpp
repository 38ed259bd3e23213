#include "media/export/AudioTrackReader.h"

#include "media/FFmpegHandles.h"
#include "media/export/MediaInput.h"

#include <algorithm>

extern "C" {
#include <libavutil/channel_layout.h>
}

struct AudioTrackReader::Decoder {
    AVInputFormatContextPtr format;
    AVCodecContextPtr codec;
    AVStream* stream = nullptr; // owned by format
    AVPacketPtr packet{av_packet_alloc()};
    AVFramePtr samples{av_frame_alloc()};
    SwrContextPtr resampler;
    int64_t origin = 0;
    bool flushed = false;
    MediaTime nextTime = MediaTime::invalid();
};

AudioTrackReader::AudioTrackReader() : m_decoder(std::make_unique<Decoder>()) {}
AudioTrackReader::~AudioTrackReader() = default;

std::unique_ptr<AudioTrackReader> AudioTrackReader::open(const std::filesystem::path& path,
                                                         Format format, std::string& error) {
    std::unique_ptr<AudioTrackReader> reader(new AudioTrackReader());
    Decoder& d = *reader->m_decoder;
    d.format = openMediaInput(path, error);
    if (!d.format)
        return nullptr;
    AVFormatContext* raw = d.format.get();
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (index < 0 || !codec)
        return nullptr;
    for (unsigned i = 0; i < raw->nb_streams; ++i)
        raw->streams[i]->discard = int(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    d.stream = raw->streams[index];
    d.codec.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(d.codec.get(), d.stream->codecpar);
    if (int result = avcodec_open2(d.codec.get(), codec, nullptr); result < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    if (d.codec->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&d.codec->ch_layout, d.codec->ch_layout.nb_channels);
    reader->m_sampleRate = format.sampleRate > 0 ? format.sampleRate : d.codec->sample_rate;
    reader->m_channelCount =
        format.channelCount > 0 ? format.channelCount : d.codec->ch_layout.nb_channels;
    AVChannelLayout outLayout;
    av_channel_layout_default(&outLayout, reader->m_channelCount);
    SwrContext* resampler = nullptr;
    if (swr_alloc_set_opts2(&resampler, &outLayout, AV_SAMPLE_FMT_FLTP, reader->m_sampleRate,
                            &d.codec->ch_layout, d.codec->sample_fmt, d.codec->sample_rate, 0,
                            nullptr) < 0 ||
        swr_init(resampler) < 0) {
        swr_free(&resampler);
        error = path.string() + ": cannot convert its audio";
        return nullptr;
    }
    d.resampler.reset(resampler);
    if (raw->start_time != AV_NOPTS_VALUE)
        d.origin = av_rescale_q(raw->start_time, AV_TIME_BASE_Q, d.stream->time_base);
    return reader;
}

void AudioTrackReader::seek(MediaTime time) {
    Decoder& d = *m_decoder;
    const int64_t target =
        d.origin + time.inTimeBase(d.stream->time_base.num, d.stream->time_base.den);
    av_seek_frame(d.format.get(), d.stream->index, std::max<int64_t>(0, target),
                  AVSEEK_FLAG_BACKWARD);
    avcodec_flush_buffers(d.codec.get());
    swr_init(d.resampler.get()); // drops what it held back from before the seek
    d.flushed = false;
    d.nextTime = MediaTime::invalid();
    m_endOfStream = false;
}

AudioBuffer AudioTrackReader::nextBuffer() {
    Decoder& d = *m_decoder;
    while (!m_endOfStream) {
        int result = avcodec_receive_frame(d.codec.get(), d.samples.get());
        if (result == 0)
            return convert();
        if (result == AVERROR_EOF || (result == AVERROR(EAGAIN) && d.flushed)) {
            m_endOfStream = true;
            break;
        }
        if (result != AVERROR(EAGAIN)) {
            m_error = ffmpegErrorText(result);
            m_endOfStream = true;
            break;
        }
        result = av_read_frame(d.format.get(), d.packet.get());
        if (result == AVERROR_EOF || result == AVERROR(EIO)) {
            avcodec_send_packet(d.codec.get(), nullptr);
            d.flushed = true;
            continue;
        }
        if (result < 0) {
            m_error = ffmpegErrorText(result);
            m_endOfStream = true;
            break;
        }
        if (d.packet->stream_index == d.stream->index)
            avcodec_send_packet(d.codec.get(), d.packet.get());
        av_packet_unref(d.packet.get());
    }
    return {};
}

AudioBuffer AudioTrackReader::convert() {
    Decoder& d = *m_decoder;
    AVFrame* samples = d.samples.get();
    const int64_t pts = samples->best_effort_timestamp;
    const int capacity = swr_get_out_samples(d.resampler.get(), samples->nb_samples);
    // The resampler holds a few samples back, so the block starts that much before the input.
    const int64_t delay = swr_get_delay(d.resampler.get(), m_sampleRate);
    MediaTime start = d.nextTime;
    if (pts != AV_NOPTS_VALUE) {
        start = MediaTime::fromTimeBase(pts - d.origin, d.stream->time_base.num,
                                        d.stream->time_base.den) -
                MediaTime::make(delay, m_sampleRate);
    }
    if (!start.isNumeric())
        start = MediaTime::zero();
    AudioBuffer buffer =
        AudioBuffer::allocate(m_channelCount, m_sampleRate, std::max(capacity, 1), start);
    if (buffer.isNull()) {
        av_frame_unref(samples);
        return {};
    }
    AVFrame* out = const_cast<AVFrame*>(buffer.avFrame());
    const int converted =
        swr_convert(d.resampler.get(), out->extended_data, capacity,
                    const_cast<const uint8_t**>(samples->extended_data), samples->nb_samples);
    av_frame_unref(samples);
    if (converted < 0) {
        m_error = ffmpegErrorText(converted);
        m_endOfStream = true;
        return {};
    }
    out->nb_samples = converted;
    d.nextTime = start + MediaTime::make(converted, m_sampleRate);
    if (converted == 0)
        return nextBuffer();
    return buffer;
}
