#include "media/VideoFrameGrabber.h"

#include "media/FFmpegHandles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace {

std::optional<GrabbedVideoFrame> fail(std::string* error, const QString& path,
                                      const std::string& reason) {
    if (error)
        *error = fmt::format("{}: {}", path.toStdString(), reason);
    return std::nullopt;
}

GrabbedVideoFrame toBgra(const AVFrame& frame, double time, SwsContextPtr& scaler) {
    GrabbedVideoFrame out;
    out.width = frame.width;
    out.height = frame.height;
    out.time = time;
    out.bgra.resize(static_cast<std::size_t>(frame.width) * frame.height * 4);
    scaler.reset(sws_getCachedContext(
        scaler.release(), frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
        frame.width, frame.height, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler)
        return {};
    std::uint8_t* planes[4] = {out.bgra.data(), nullptr, nullptr, nullptr};
    int strides[4] = {frame.width * 4, 0, 0, 0};
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
    // Movies carry no alpha worth keeping here: the compositor expects an opaque screen.
    for (std::size_t i = 3; i < out.bgra.size(); i += 4)
        out.bgra[i] = 255;
    return out;
}

} // namespace

std::optional<GrabbedVideoFrame> grabVideoFrame(const QString& path, double seconds,
                                                std::string* error) {
    AVFormatContext* opened = nullptr;
    const QByteArray file = path.toUtf8();
    int status = avformat_open_input(&opened, file.constData(), nullptr, nullptr);
    if (status < 0)
        return fail(error, path, ffmpegErrorText(status));
    AVInputFormatContextPtr format(opened);
    if ((status = avformat_find_stream_info(format.get(), nullptr)) < 0)
        return fail(error, path, ffmpegErrorText(status));
    const AVCodec* codec = nullptr;
    const int streamIndex =
        av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (streamIndex < 0 || !codec)
        return fail(error, path, "no video stream");
    AVStream* stream = format->streams[streamIndex];
    AVCodecContextPtr decoder(avcodec_alloc_context3(codec));
    if (!decoder || avcodec_parameters_to_context(decoder.get(), stream->codecpar) < 0)
        return fail(error, path, "cannot set up the decoder");
    if ((status = avcodec_open2(decoder.get(), codec, nullptr)) < 0)
        return fail(error, path, ffmpegErrorText(status));

    const double base = av_q2d(stream->time_base);
    const double start = stream->start_time == AV_NOPTS_VALUE ? 0.0 : stream->start_time * base;
    const double target = start + std::max(0.0, seconds);
    if (seconds > 0.0)
        av_seek_frame(format.get(), streamIndex, static_cast<std::int64_t>(target / base),
                      AVSEEK_FLAG_BACKWARD);

    AVPacketPtr packet(av_packet_alloc());
    AVFramePtr frame(av_frame_alloc());
    AVFramePtr kept(av_frame_alloc());
    if (!packet || !frame || !kept)
        return fail(error, path, "out of memory");
    SwsContextPtr scaler;
    bool haveKept = false;
    double keptTime = 0.0;
    bool draining = false;
    // Decodes forward from the key frame before `target`, keeping the latest frame that starts
    // at or before it, and stops at the first one after it.
    for (;;) {
        if (!draining) {
            status = av_read_frame(format.get(), packet.get());
            if (status == AVERROR_EOF) {
                draining = true;
                avcodec_send_packet(decoder.get(), nullptr);
            } else if (status < 0) {
                return fail(error, path, ffmpegErrorText(status));
            } else {
                if (packet->stream_index == streamIndex)
                    avcodec_send_packet(decoder.get(), packet.get());
                av_packet_unref(packet.get());
            }
        }
        for (;;) {
            status = avcodec_receive_frame(decoder.get(), frame.get());
            if (status == AVERROR(EAGAIN))
                break;
            if (status == AVERROR_EOF)
                return haveKept ? std::optional(toBgra(*kept, keptTime - start, scaler))
                                : fail(error, path, "no frame decoded");
            if (status < 0)
                return fail(error, path, ffmpegErrorText(status));
            const std::int64_t pts = frame->best_effort_timestamp;
            const double time = pts == AV_NOPTS_VALUE ? keptTime : pts * base;
            if (haveKept && time > target + 1e-6)
                return toBgra(*kept, keptTime - start, scaler);
            av_frame_unref(kept.get());
            av_frame_move_ref(kept.get(), frame.get());
            keptTime = time;
            haveKept = true;
        }
    }
}
