#include "media/AudioFileEncoder.h"

#include "media/FFmpegHandles.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace {

const AVCodec* findEncoder(AudioFileEncoder::Codec codec) {
    return avcodec_find_encoder_by_name(codec == AudioFileEncoder::Codec::aac ? "aac"
                                                                              : "libmp3lame");
}

bool supportsFloatPlanar(const AVCodec* codec) {
    for (const AVSampleFormat* format = codec->sample_fmts; format && *format != AV_SAMPLE_FMT_NONE;
         ++format) {
        if (*format == AV_SAMPLE_FMT_FLTP)
            return true;
    }
    return false;
}

} // namespace

struct AudioFileEncoder::Encoder {
    AVOutputFormatContextPtr format;
    AVCodecContextPtr context;
    AVAudioFifoPtr fifo;
    AVFramePtr frame;
    AVPacketPtr packet;
    AVStream* stream = nullptr; // owned by `format`
    int64_t nextPts = 0;
    bool headerWritten = false;
    bool failed = false;

    ~Encoder() {
        if (format && format->pb)
            avio_closep(&format->pb);
    }
};

AudioFileEncoder::AudioFileEncoder() : m_encoder(std::make_unique<Encoder>()) {}

AudioFileEncoder::~AudioFileEncoder() = default;

bool AudioFileEncoder::isAvailable(Codec codec) {
    const AVCodec* encoder = findEncoder(codec);
    return encoder && supportsFloatPlanar(encoder);
}

std::unique_ptr<AudioFileEncoder> AudioFileEncoder::create(const std::filesystem::path& path,
                                                           Codec codec, int sampleRate,
                                                           int channelCount, std::string& error) {
    // The AAC encoder's statistics ("Qavg") would be printed to a terminal at the end of every
    // mix; errors still are.
    av_log_set_level(std::min(av_log_get_level(), AV_LOG_ERROR));
    std::unique_ptr<AudioFileEncoder> encoder(new AudioFileEncoder());
    encoder->m_path = path;
    Encoder& e = *encoder->m_encoder;
    auto failed = [&](const std::string& what, int code) {
        encoder->fail(what, code);
        error = encoder->m_error;
        std::error_code ignored;
        if (e.headerWritten || (e.format && e.format->pb)) {
            avio_closep(&e.format->pb);
            std::filesystem::remove(path, ignored);
        }
        return nullptr;
    };

    const AVCodec* found = findEncoder(codec);
    if (!found || !supportsFloatPlanar(found))
        return failed(codec == Codec::aac ? "no AAC encoder" : "no MP3 encoder", 0);
    AVFormatContext* rawFormat = nullptr;
    int result = avformat_alloc_output_context2(&rawFormat, nullptr,
                                                codec == Codec::aac ? "ipod" : "mp3", path.c_str());
    e.format.reset(rawFormat);
    if (result < 0)
        return failed("cannot make the container", result);

    e.context.reset(avcodec_alloc_context3(found));
    e.context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    e.context->sample_rate = sampleRate;
    av_channel_layout_default(&e.context->ch_layout, channelCount);
    e.context->bit_rate = codec == Codec::aac ? 128'000 : 192'000;
    e.context->time_base = AVRational{1, sampleRate};
    if (e.format->oformat->flags & AVFMT_GLOBALHEADER)
        e.context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    AVDictionary* codecOptions = nullptr;
    // FFmpeg's default AAC search ("twoloop") spends several times the CPU of the "fast" one for
    // no difference a listener hears at 128 kbit/s; a mix-down of an hour should take seconds.
    if (codec == Codec::aac)
        av_dict_set(&codecOptions, "aac_coder", "fast", 0);
    result = avcodec_open2(e.context.get(), found, &codecOptions);
    av_dict_free(&codecOptions);
    if (result < 0)
        return failed("cannot open the encoder", result);

    e.stream = avformat_new_stream(e.format.get(), nullptr);
    if (!e.stream)
        return failed("cannot add the audio track", AVERROR(ENOMEM));
    e.stream->time_base = e.context->time_base;
    if ((result = avcodec_parameters_from_context(e.stream->codecpar, e.context.get())) < 0)
        return failed("cannot describe the audio track", result);
    if ((result = avio_open(&e.format->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0)
        return failed("cannot create the file", result);
    if ((result = avformat_write_header(e.format.get(), nullptr)) < 0)
        return failed("cannot write the header", result);
    e.headerWritten = true;

    e.fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, channelCount, 8192));
    e.frame.reset(av_frame_alloc());
    e.packet.reset(av_packet_alloc());
    if (!e.fifo || !e.frame || !e.packet)
        return failed("out of memory", AVERROR(ENOMEM));
    return encoder;
}

bool AudioFileEncoder::fail(const std::string& what, int code) {
    m_encoder->failed = true;
    m_error = code ? fmt::format("{}: {} ({})", m_path.string(), what, ffmpegErrorText(code))
                   : fmt::format("{}: {}", m_path.string(), what);
    return false;
}

bool AudioFileEncoder::write(const float* const* channels, int count) {
    if (m_encoder->failed)
        return false;
    // av_audio_fifo_write takes non-const planes but only reads them.
    std::vector<void*> planes(size_t(m_encoder->context->ch_layout.nb_channels));
    for (size_t channel = 0; channel < planes.size(); ++channel)
        planes[channel] = const_cast<float*>(channels[channel]);
    if (av_audio_fifo_write(m_encoder->fifo.get(), planes.data(), count) < count)
        return fail("out of memory", AVERROR(ENOMEM));
    return sendFrames(false);
}

bool AudioFileEncoder::sendFrames(bool final) {
    Encoder& e = *m_encoder;
    const int frameSize = e.context->frame_size > 0 ? e.context->frame_size : 1024;
    while (av_audio_fifo_size(e.fifo.get()) >= frameSize ||
           (final && av_audio_fifo_size(e.fifo.get()) > 0)) {
        const int available = std::min(frameSize, av_audio_fifo_size(e.fifo.get()));
        // A short last frame only where the codec takes one; otherwise padded with silence.
        const bool small = e.context->codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME;
        av_frame_unref(e.frame.get());
        e.frame->nb_samples = small ? available : frameSize;
        e.frame->format = e.context->sample_fmt;
        e.frame->sample_rate = e.context->sample_rate;
        av_channel_layout_copy(&e.frame->ch_layout, &e.context->ch_layout);
        int result = av_frame_get_buffer(e.frame.get(), 0);
        if (result < 0)
            return fail("out of memory", result);
        if (available < e.frame->nb_samples)
            av_samples_set_silence(e.frame->extended_data, 0, e.frame->nb_samples,
                                   e.context->ch_layout.nb_channels, e.context->sample_fmt);
        av_audio_fifo_read(e.fifo.get(), reinterpret_cast<void**>(e.frame->extended_data),
                           available);
        e.frame->pts = e.nextPts;
        e.nextPts += e.frame->nb_samples;
        if ((result = avcodec_send_frame(e.context.get(), e.frame.get())) < 0)
            return fail("cannot encode", result);
        if (!drain())
            return false;
    }
    return true;
}

bool AudioFileEncoder::drain() {
    Encoder& e = *m_encoder;
    for (;;) {
        const int result = avcodec_receive_packet(e.context.get(), e.packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return true;
        if (result < 0)
            return fail("cannot encode", result);
        av_packet_rescale_ts(e.packet.get(), e.context->time_base, e.stream->time_base);
        e.packet->stream_index = e.stream->index;
        const int written = av_interleaved_write_frame(e.format.get(), e.packet.get());
        if (written < 0)
            return fail("cannot write", written);
    }
}

bool AudioFileEncoder::finish() {
    Encoder& e = *m_encoder;
    if (e.failed)
        return false;
    if (!sendFrames(true))
        return false;
    int result = avcodec_send_frame(e.context.get(), nullptr);
    if (result < 0)
        return fail("cannot encode", result);
    if (!drain())
        return false;
    if ((result = av_write_trailer(e.format.get())) < 0)
        return fail("cannot finish the file", result);
    if ((result = avio_closep(&e.format->pb)) < 0)
        return fail("cannot close the file", result);
    e.failed = true; // nothing more may be written
    m_error.clear();
    return true;
}
