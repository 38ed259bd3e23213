#include "media/export/PassthroughCopy.h"

#include "media/FFmpegHandles.h"

#include <algorithm>
#include <vector>

namespace {
struct CopiedStream {
    AVStream* input = nullptr;
    AVStream* output = nullptr;
    int64_t lastDts = AV_NOPTS_VALUE; // in the output's time base
};

bool fail(std::string& error, const std::string& text) {
    error = text;
    return false;
}
} // namespace

bool copyPacketRanges(const std::filesystem::path& input, const std::vector<MediaTimeRange>& ranges,
                      const std::filesystem::path& output, bool mpeg4, bool fastStart,
                      const std::atomic<bool>& cancelled,
                      const std::function<void(double)>& progress, std::string& error) {
    // Damaged input is reported once, in our own words; FFmpeg's lines would only repeat it.
    av_log_set_level(std::min(av_log_get_level(), AV_LOG_FATAL));
    AVFormatContext* raw = nullptr;
    if (int result = avformat_open_input(&raw, input.c_str(), nullptr, nullptr); result < 0)
        return fail(error, input.string() + ": " + ffmpegErrorText(result));
    AVInputFormatContextPtr source(raw);
    if (int result = avformat_find_stream_info(raw, nullptr); result < 0)
        return fail(error, input.string() + ": " + ffmpegErrorText(result));
    const int videoIndex = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (videoIndex < 0)
        return fail(error, input.string() + ": no video stream");

    AVFormatContext* rawOut = nullptr;
    if (int result =
            avformat_alloc_output_context2(&rawOut, nullptr, mpeg4 ? "mp4" : "mov", output.c_str());
        result < 0)
        return fail(error, ffmpegErrorText(result));
    AVOutputFormatContextPtr sink(rawOut);
    std::vector<CopiedStream> streams(raw->nb_streams);
    for (unsigned i = 0; i < raw->nb_streams; ++i) {
        AVStream* in = raw->streams[i];
        const AVMediaType type = in->codecpar->codec_type;
        if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) {
            in->discard = AVDISCARD_ALL;
            continue;
        }
        if (type == AVMEDIA_TYPE_VIDEO && int(i) != videoIndex) {
            in->discard = AVDISCARD_ALL;
            continue;
        }
        AVStream* out = avformat_new_stream(rawOut, nullptr);
        if (!out || avcodec_parameters_copy(out->codecpar, in->codecpar) < 0)
            return fail(error, "cannot add a track to " + output.string());
        out->codecpar->codec_tag = 0;
        out->time_base = in->time_base;
        streams[i] = {in, out};
    }
    if (int result = avio_open(&rawOut->pb, output.c_str(), AVIO_FLAG_WRITE); result < 0)
        return fail(error, output.string() + ": " + ffmpegErrorText(result));
    auto abandon = [&](const std::string& text) {
        avio_closep(&rawOut->pb);
        std::error_code ignored;
        std::filesystem::remove(output, ignored);
        return text.empty() ? false : fail(error, text);
    };
    AVDictionary* options = nullptr;
    if (fastStart && mpeg4)
        av_dict_set(&options, "movflags", "+faststart", 0);
    int result = avformat_write_header(rawOut, &options);
    av_dict_free(&options);
    if (result < 0)
        return abandon(output.string() + ": " + ffmpegErrorText(result));

    AVStream* video = raw->streams[videoIndex];
    const int64_t origin = raw->start_time != AV_NOPTS_VALUE
                               ? av_rescale_q(raw->start_time, AV_TIME_BASE_Q, video->time_base)
                               : 0;
    double total = 0;
    for (const MediaTimeRange& range : ranges)
        total += range.duration.seconds();
    double copied = 0;
    // Where the next range begins on the output's time line, in seconds.
    double outputOffset = 0;
    AVPacketPtr packet(av_packet_alloc());
    for (const MediaTimeRange& range : ranges) {
        const int64_t start =
            origin + range.start.inTimeBase(video->time_base.num, video->time_base.den);
        const double endSeconds = range.end().seconds();
        av_seek_frame(raw, videoIndex, start, AVSEEK_FLAG_BACKWARD);
        // The range is copied from its key frame: every stream shifts by the same amount.
        double cutSeconds = -1;
        // The first range starts at its own start: the pictures before it, from the key frame on,
        // get times before zero, which the file's edit list hides, so the copy begins exactly
        // where asked. A later range cannot reach back past the previous one, so it starts at
        // its key frame.
        const bool firstRange = &range == &ranges.front();
        double anchorSeconds = -1;
        double rangeEndOutput = outputOffset;
        std::vector<bool> finished(raw->nb_streams, false);
        while (true) {
            if (cancelled)
                return abandon({});
            result = av_read_frame(raw, packet.get());
            if (result == AVERROR_EOF)
                break;
            if (result < 0)
                return abandon(input.string() + ": " + ffmpegErrorText(result));
            CopiedStream& stream = streams[size_t(packet->stream_index)];
            if (!stream.output || finished[size_t(packet->stream_index)]) {
                av_packet_unref(packet.get());
                continue;
            }
            const AVRational base = stream.input->time_base;
            const int64_t streamOrigin = av_rescale_q(origin, video->time_base, base);
            const int64_t ts = packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts;
            const double seconds = double(ts - streamOrigin) * av_q2d(base);
            const double ptsSeconds = packet->pts != AV_NOPTS_VALUE
                                          ? double(packet->pts - streamOrigin) * av_q2d(base)
                                          : seconds;
            if (cutSeconds < 0) {
                // Audio before the first picture of the range waits for it to set the cut.
                if (packet->stream_index != videoIndex) {
                    av_packet_unref(packet.get());
                    continue;
                }
                cutSeconds = std::min(ptsSeconds, range.start.seconds());
                anchorSeconds = firstRange ? range.start.seconds() : cutSeconds;
            }
            if (seconds >= endSeconds || ptsSeconds < cutSeconds - 1e-6) {
                if (seconds >= endSeconds)
                    finished[size_t(packet->stream_index)] = true;
                av_packet_unref(packet.get());
                const bool allDone = std::all_of(streams.begin(), streams.end(), [&](auto& s) {
                    return !s.output || finished[size_t(s.input->index)];
                });
                if (allDone)
                    break;
                continue;
            }
            const int64_t shift = av_rescale_q(int64_t((outputOffset - anchorSeconds) * 1e6),
                                               AVRational{1, 1000000}, base) -
                                  streamOrigin;
            if (packet->pts != AV_NOPTS_VALUE)
                packet->pts += shift;
            if (packet->dts != AV_NOPTS_VALUE)
                packet->dts += shift;
            av_packet_rescale_ts(packet.get(), base, stream.output->time_base);
            // Two ranges must never share a timestamp in one track.
            if (packet->dts != AV_NOPTS_VALUE && stream.lastDts != AV_NOPTS_VALUE &&
                packet->dts <= stream.lastDts) {
                av_packet_unref(packet.get());
                continue;
            }
            stream.lastDts = packet->dts;
            const double packetEnd =
                double((packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts) +
                       packet->duration) *
                av_q2d(stream.output->time_base);
            rangeEndOutput = std::max(rangeEndOutput, packetEnd);
            packet->stream_index = stream.output->index;
            packet->pos = -1;
            if (int written = av_interleaved_write_frame(rawOut, packet.get()); written < 0)
                return abandon(output.string() + ": " + ffmpegErrorText(written));
            if (progress && total > 0)
                progress((copied + std::max(0.0, ptsSeconds - range.start.seconds())) / total);
        }
        copied += range.duration.seconds();
        outputOffset = rangeEndOutput;
    }
    if (int written = av_write_trailer(rawOut); written < 0)
        return abandon(output.string() + ": " + ffmpegErrorText(written));
    if (int closed = avio_closep(&rawOut->pb); closed < 0)
        return abandon(output.string() + ": " + ffmpegErrorText(closed));
    return true;
}
