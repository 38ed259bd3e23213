#include "media/export/GifEncoder.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <fmt/format.h>

namespace {
constexpr AVRational inputTimeBase{1, 90000};
// Scaled first, so the frames the palette waits for are small; lanczos keeps text legible.
constexpr const char* paletteGraph =
    "scale=w='min(640,iw)':h=-2:flags=lanczos,split[a][b];[a]palettegen=stats_mode=full[p];"
    "[b][p]paletteuse=dither=sierra2_4a";

struct FreeGraph {
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
} // namespace

struct GifEncoder::State {
    std::unique_ptr<AVFilterGraph, FreeGraph> graph;
    AVFilterContext* source = nullptr; // owned by graph
    AVFilterContext* sink = nullptr;   // owned by graph
    AVCodecContextPtr codec;
    AVOutputFormatContextPtr muxer;
    AVStream* stream = nullptr; // owned by muxer
    AVFramePtr filtered{av_frame_alloc()};
    AVPacketPtr packet{av_packet_alloc()};
    std::filesystem::path path;
};

GifEncoder::GifEncoder() : m_state(std::make_unique<State>()) {}

GifEncoder::~GifEncoder() {
    if (m_state->muxer && m_state->muxer->pb)
        avio_closep(&m_state->muxer->pb);
}

std::unique_ptr<GifEncoder> GifEncoder::create(const std::filesystem::path& path, int width,
                                               int height, std::string& error) {
    std::unique_ptr<GifEncoder> encoder(new GifEncoder());
    State& s = *encoder->m_state;
    s.path = path;
    s.graph.reset(avfilter_graph_alloc());
    const std::string arguments =
        fmt::format("video_size={}x{}:pix_fmt={}:time_base={}/{}:pixel_aspect=1/1", width, height,
                    int(AV_PIX_FMT_BGRA), inputTimeBase.num, inputTimeBase.den);
    if (avfilter_graph_create_filter(&s.source, avfilter_get_by_name("buffer"), "in",
                                     arguments.c_str(), nullptr, s.graph.get()) < 0 ||
        avfilter_graph_create_filter(&s.sink, avfilter_get_by_name("buffersink"), "out", nullptr,
                                     nullptr, s.graph.get()) < 0) {
        error = "no GIF filters in this FFmpeg";
        return nullptr;
    }
    AVFilterInOut* outputs = avfilter_inout_alloc();
    AVFilterInOut* inputs = avfilter_inout_alloc();
    outputs->name = av_strdup("in");
    outputs->filter_ctx = s.source;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = s.sink;
    int result = avfilter_graph_parse_ptr(s.graph.get(), paletteGraph, &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (result >= 0)
        result = avfilter_graph_config(s.graph.get(), nullptr);
    if (result < 0) {
        error = "GIF palette: " + ffmpegErrorText(result);
        return nullptr;
    }
    const AVCodec* gif = avcodec_find_encoder(AV_CODEC_ID_GIF);
    if (!gif) {
        error = "no GIF encoder in this FFmpeg";
        return nullptr;
    }
    s.codec.reset(avcodec_alloc_context3(gif));
    s.codec->width = av_buffersink_get_w(s.sink);
    s.codec->height = av_buffersink_get_h(s.sink);
    s.codec->pix_fmt = AV_PIX_FMT_PAL8;
    s.codec->time_base = av_buffersink_get_time_base(s.sink);
    AVFormatContext* muxer = nullptr;
    if (avformat_alloc_output_context2(&muxer, nullptr, "gif", path.c_str()) < 0) {
        error = "no GIF muxer in this FFmpeg";
        return nullptr;
    }
    s.muxer.reset(muxer);
    if (muxer->oformat->flags & AVFMT_GLOBALHEADER)
        s.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if ((result = avcodec_open2(s.codec.get(), gif, nullptr)) < 0) {
        error = "GIF encoder: " + ffmpegErrorText(result);
        return nullptr;
    }
    s.stream = avformat_new_stream(muxer, nullptr);
    if (!s.stream || avcodec_parameters_from_context(s.stream->codecpar, s.codec.get()) < 0) {
        error = "cannot add the GIF track";
        return nullptr;
    }
    s.stream->time_base = s.codec->time_base;
    if ((result = avio_open(&muxer->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    if ((result = avformat_write_header(muxer, nullptr)) < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    return encoder;
}

int GifEncoder::add(const VideoFrame& frame, int64_t pts) {
    State& s = *m_state;
    AVFramePtr input(av_frame_clone(frame.avFrame()));
    if (!input)
        return AVERROR(ENOMEM);
    // Composed frames are opaque; the palette must not spend an entry on transparency.
    input->format = AV_PIX_FMT_BGRA;
    input->pts = pts;
    const int result =
        av_buffersrc_add_frame_flags(s.source, input.get(), AV_BUFFERSRC_FLAG_KEEP_REF);
    return result < 0 ? result : drainGraph();
}

int GifEncoder::drainGraph() {
    State& s = *m_state;
    while (true) {
        int result = av_buffersink_get_frame(s.sink, s.filtered.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return 0;
        if (result < 0)
            return result;
        result = avcodec_send_frame(s.codec.get(), s.filtered.get());
        av_frame_unref(s.filtered.get());
        if (result < 0)
            return result;
        while ((result = avcodec_receive_packet(s.codec.get(), s.packet.get())) == 0) {
            av_packet_rescale_ts(s.packet.get(), s.codec->time_base, s.stream->time_base);
            s.packet->stream_index = s.stream->index;
            if (int written = av_interleaved_write_frame(s.muxer.get(), s.packet.get());
                written < 0)
                return written;
        }
        if (result != AVERROR(EAGAIN) && result != AVERROR_EOF)
            return result;
    }
}

int GifEncoder::finish() {
    State& s = *m_state;
    int result = av_buffersrc_add_frame_flags(s.source, nullptr, 0);
    if (result >= 0)
        result = drainGraph();
    if (result >= 0 && (result = avcodec_send_frame(s.codec.get(), nullptr)) >= 0) {
        while ((result = avcodec_receive_packet(s.codec.get(), s.packet.get())) == 0) {
            av_packet_rescale_ts(s.packet.get(), s.codec->time_base, s.stream->time_base);
            s.packet->stream_index = s.stream->index;
            if ((result = av_interleaved_write_frame(s.muxer.get(), s.packet.get())) < 0)
                return result;
        }
        result = result == AVERROR_EOF ? 0 : result;
    }
    if (result >= 0)
        result = av_write_trailer(s.muxer.get());
    if (s.muxer->pb) {
        const int closed = avio_closep(&s.muxer->pb);
        if (result >= 0)
            result = closed;
    }
    return result;
}
