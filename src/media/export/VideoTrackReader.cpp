#include "media/export/VideoTrackReader.h"

#include "media/FFmpegHandles.h"
#include "media/export/MediaInput.h"

#include <libyuv/convert_argb.h>

#include <algorithm>

namespace {
// Further ahead than this, a seek to the key frame before the time beats decoding through.
constexpr double forwardSeekSeconds = 2.0;

// The file's first sample, which becomes zero on the reader's time line.
int64_t originOf(const AVFormatContext* format, const AVStream* stream) {
    if (format->start_time != AV_NOPTS_VALUE)
        return av_rescale_q(format->start_time, AV_TIME_BASE_Q, stream->time_base);
    return stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
}
} // namespace

struct VideoTrackReader::Decoder {
    AVInputFormatContextPtr format;
    AVCodecContextPtr codec;
    AVStream* stream = nullptr; // owned by format
    AVPacketPtr packet{av_packet_alloc()};
    AVFramePtr picture{av_frame_alloc()};
    SwsContextPtr scaler;
    std::unique_ptr<VideoFramePool> pool;
    int64_t origin = 0;
    bool flushed = false;
};

VideoTrackReader::VideoTrackReader() : m_decoder(std::make_unique<Decoder>()) {}
VideoTrackReader::~VideoTrackReader() = default;

std::unique_ptr<VideoTrackReader> VideoTrackReader::open(const std::filesystem::path& path,
                                                         std::string& error) {
    std::unique_ptr<VideoTrackReader> reader(new VideoTrackReader());
    Decoder& d = *reader->m_decoder;
    d.format = openMediaInput(path, error);
    if (!d.format)
        return nullptr;
    AVFormatContext* raw = d.format.get();
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (index < 0 || !codec) {
        error = path.string() + ": no video stream";
        return nullptr;
    }
    for (unsigned i = 0; i < raw->nb_streams; ++i)
        raw->streams[i]->discard = int(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    d.stream = raw->streams[index];
    d.codec.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(d.codec.get(), d.stream->codecpar);
    d.codec->thread_count = 0;
    if (int result = avcodec_open2(d.codec.get(), codec, nullptr); result < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    reader->m_codecName = avcodec_get_name(d.stream->codecpar->codec_id);
    reader->m_width = d.codec->width;
    reader->m_height = d.codec->height;
    if (reader->m_width <= 0 || reader->m_height <= 0) {
        error = path.string() + ": the video stream has no picture size";
        return nullptr;
    }
    d.origin = originOf(raw, d.stream);
    if (raw->duration > 0)
        reader->m_duration = MediaTime::fromTimeBase(raw->duration, 1, AV_TIME_BASE);
    else if (d.stream->duration > 0)
        reader->m_duration = MediaTime::fromTimeBase(d.stream->duration, d.stream->time_base.num,
                                                     d.stream->time_base.den);
    d.pool = std::make_unique<VideoFramePool>(reader->m_width, reader->m_height);
    return reader;
}

bool VideoTrackReader::checkComplete(std::string& error) {
    Decoder& d = *m_decoder;
    const AVRational base = d.stream->time_base;
    const MediaTime lastSecond = std::max(MediaTime::zero(), m_duration - MediaTime::make(1, 1));
    av_seek_frame(d.format.get(), d.stream->index,
                  d.origin + lastSecond.inTimeBase(base.num, base.den), AVSEEK_FLAG_BACKWARD);
    int64_t lastEnd = AV_NOPTS_VALUE;
    int result = 0;
    while ((result = av_read_frame(d.format.get(), d.packet.get())) >= 0) {
        if (d.packet->stream_index == d.stream->index && d.packet->pts != AV_NOPTS_VALUE)
            lastEnd = std::max(lastEnd == AV_NOPTS_VALUE ? INT64_MIN : lastEnd,
                               d.packet->pts + d.packet->duration);
        av_packet_unref(d.packet.get());
    }
    // The next frameAt seeks again from wherever this left the demuxer.
    m_positioned = false;
    const std::string name = d.format->url ? d.format->url : "the movie";
    if (result != AVERROR_EOF) {
        error = name + ": damaged or cut short (" + ffmpegErrorText(result) + ")";
        return false;
    }
    if (lastEnd == AV_NOPTS_VALUE ||
        MediaTime::fromTimeBase(lastEnd - d.origin, base.num, base.den) < lastSecond) {
        error = name + ": cut short, its pictures end before its stated length";
        return false;
    }
    return true;
}

void VideoTrackReader::seekTo(MediaTime time) {
    Decoder& d = *m_decoder;
    const int64_t target =
        d.origin + time.inTimeBase(d.stream->time_base.num, d.stream->time_base.den);
    // A failed seek leaves the demuxer where it was; decoding from there is still correct, only
    // slower, so it is no error.
    av_seek_frame(d.format.get(), d.stream->index, target, AVSEEK_FLAG_BACKWARD);
    avcodec_flush_buffers(d.codec.get());
    d.flushed = false;
    m_current = {};
    m_next = {};
    m_endOfStream = false;
    m_positioned = true;
}

VideoFrame VideoTrackReader::frameAt(MediaTime time) {
    const bool behind = !m_current.isNull() && time < m_current.presentationTime;
    const MediaTime reached = !m_next.isNull()      ? m_next.presentationTime
                              : !m_current.isNull() ? m_current.presentationTime
                                                    : MediaTime::invalid();
    const bool farAhead =
        reached.isNumeric() && (time - reached).seconds() > forwardSeekSeconds && !m_endOfStream;
    if (!m_positioned || behind || farAhead)
        seekTo(time);
    while (true) {
        if (m_next.isNull() && !m_endOfStream)
            m_next = decodeNext();
        if (m_next.isNull())
            break;
        if (m_next.presentationTime > time)
            break;
        m_current = std::move(m_next);
        m_next = {};
    }
    return m_current.isNull() ? m_next : m_current;
}

VideoFrame VideoTrackReader::frameNear(MediaTime time, MediaTime tolerance) {
    if (m_positioned && !m_current.isNull()) {
        const MediaTime reached =
            m_next.isNull() ? m_current.presentationTime : m_next.presentationTime;
        if (time < m_current.presentationTime && m_current.presentationTime - time <= tolerance)
            return m_current;
        if (time >= m_current.presentationTime && time - reached <= tolerance)
            return frameAt(time);
    }
    seekTo(time);
    m_next = decodeNext();
    if (m_next.isNull() || m_next.presentationTime > time)
        return m_next;
    m_current = std::move(m_next);
    m_next = {};
    return m_current;
}

VideoFrame VideoTrackReader::decodeNext() {
    Decoder& d = *m_decoder;
    while (true) {
        int result = avcodec_receive_frame(d.codec.get(), d.picture.get());
        if (result == 0)
            break;
        if (result == AVERROR_EOF) {
            m_endOfStream = true;
            return {};
        }
        if (result != AVERROR(EAGAIN)) {
            m_error = ffmpegErrorText(result);
            m_endOfStream = true;
            return {};
        }
        if (d.flushed) {
            m_endOfStream = true;
            return {};
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
            return {};
        }
        if (d.packet->stream_index == d.stream->index) {
            // A damaged packet costs its picture, not the export: the decoder resynchronises
            // at the next key frame.
            avcodec_send_packet(d.codec.get(), d.packet.get());
        }
        av_packet_unref(d.packet.get());
    }
    AVFrame* picture = d.picture.get();
    int64_t pts = picture->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE)
        pts = picture->pts;
    const MediaTime time =
        MediaTime::fromTimeBase(pts == AV_NOPTS_VALUE ? 0 : pts - d.origin, d.stream->time_base.num,
                                d.stream->time_base.den);
    const MediaTime duration =
        MediaTime::fromTimeBase(picture->pkt_duration > 0 ? picture->pkt_duration : 0,
                                d.stream->time_base.num, d.stream->time_base.den);
    VideoFrame frame = d.pool->makeFrame(time, duration);
    if (frame.isNull()) {
        av_frame_unref(picture);
        m_error = "out of memory";
        m_endOfStream = true;
        return {};
    }
    uint8_t* out = frame.mutableBytes();
    const int stride = frame.bytesPerRow();
    const int width = std::min(m_width, picture->width);
    const int height = std::min(m_height, picture->height);
    const bool fullRange = picture->color_range == AVCOL_RANGE_JPEG;
    const bool bt709 = picture->colorspace == AVCOL_SPC_BT709;
    // libyuv's "ARGB" is BGRA in memory, the frame's layout; it is several times faster than
    // libswscale for the 4:2:0 pictures every H.264 recording holds.
    if (picture->format == AV_PIX_FMT_YUV420P || picture->format == AV_PIX_FMT_YUVJ420P) {
        const auto convert = fullRange || picture->format == AV_PIX_FMT_YUVJ420P
                                 ? libyuv::J420ToARGB
                             : bt709 ? libyuv::H420ToARGB
                                     : libyuv::I420ToARGB;
        convert(picture->data[0], picture->linesize[0], picture->data[1], picture->linesize[1],
                picture->data[2], picture->linesize[2], out, stride, width, height);
    } else if (picture->format == AV_PIX_FMT_NV12 && !fullRange && !bt709) {
        libyuv::NV12ToARGB(picture->data[0], picture->linesize[0], picture->data[1],
                           picture->linesize[1], out, stride, width, height);
    } else {
        d.scaler.reset(sws_getCachedContext(
            d.scaler.release(), picture->width, picture->height, AVPixelFormat(picture->format),
            m_width, m_height, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!d.scaler) {
            av_frame_unref(picture);
            m_error = "no colour conversion for this video";
            m_endOfStream = true;
            return {};
        }
        uint8_t* planes[4] = {out, nullptr, nullptr, nullptr};
        int strides[4] = {stride, 0, 0, 0};
        sws_scale(d.scaler.get(), picture->data, picture->linesize, 0, picture->height, planes,
                  strides);
    }
    av_frame_unref(picture);
    return frame;
}
