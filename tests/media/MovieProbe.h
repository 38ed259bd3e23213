#pragma once

#include "media/DecodedAudio.h"
#include "media/FFmpegHandles.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Reads a movie file back with libavformat, as any player would, and reports what it holds.
struct ProbedStream {
    AVMediaType type = AVMEDIA_TYPE_UNKNOWN;
    std::string codec;
    std::string codecTag;
    int width = 0;
    int height = 0;
    int sampleRate = 0;
    int channels = 0;
    std::string colorPrimaries;
    std::string colorTransfer;
    std::string colorMatrix;
    std::vector<double> packetTimes; // presentation times in seconds, in file order
    double endSeconds = 0;           // the largest pts + duration

    // The longest time between two packets in file order: a frozen stretch of the picture.
    double largestGap() const {
        double gap = 0;
        for (size_t i = 1; i < packetTimes.size(); ++i)
            gap = std::max(gap, packetTimes[i] - packetTimes[i - 1]);
        return gap;
    }
};

struct ProbedFile {
    std::string formatName;
    double durationSeconds = 0;
    std::vector<ProbedStream> streams;
    const ProbedStream* first(AVMediaType type) const {
        for (const ProbedStream& stream : streams) {
            if (stream.type == type)
                return &stream;
        }
        return nullptr;
    }
};

inline std::optional<ProbedFile> probeMovie(const std::filesystem::path& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0)
        return std::nullopt;
    AVInputFormatContextPtr input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0)
        return std::nullopt;
    ProbedFile file;
    file.formatName = input->iformat->name;
    file.durationSeconds = input->duration > 0 ? double(input->duration) / AV_TIME_BASE : 0;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters* parameters = input->streams[i]->codecpar;
        ProbedStream stream;
        stream.type = parameters->codec_type;
        stream.codec = avcodec_get_name(parameters->codec_id);
        char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
        av_fourcc_make_string(tag, parameters->codec_tag);
        stream.codecTag = tag;
        stream.width = parameters->width;
        stream.height = parameters->height;
        stream.sampleRate = parameters->sample_rate;
        stream.channels = parameters->ch_layout.nb_channels;
        stream.colorPrimaries = av_color_primaries_name(parameters->color_primaries);
        stream.colorTransfer = av_color_transfer_name(parameters->color_trc);
        stream.colorMatrix = av_color_space_name(parameters->color_space);
        file.streams.push_back(stream);
    }
    AVPacketPtr packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const AVStream* stream = input->streams[packet->stream_index];
        ProbedStream& probed = file.streams[size_t(packet->stream_index)];
        if (packet->pts != AV_NOPTS_VALUE) {
            double pts = double(packet->pts) * av_q2d(stream->time_base);
            probed.packetTimes.push_back(pts);
            probed.endSeconds = std::max(probed.endSeconds, pts + double(packet->duration) *
                                                                      av_q2d(stream->time_base));
        }
        av_packet_unref(packet.get());
    }
    return file;
}

// A movie's first video stream; absent when the file does not open or has no picture.
inline std::optional<ProbedStream> probeVideo(const std::filesystem::path& path) {
    const auto file = probeMovie(path);
    if (!file || !file->first(AVMEDIA_TYPE_VIDEO))
        return std::nullopt;
    return *file->first(AVMEDIA_TYPE_VIDEO);
}

// Blue-difference (plane 1, U) or red-difference (plane 2, V) chroma of a 4:2:0 picture at a
// pixel: red has a high V, blue a high U, grey both near 128.
inline int chromaAt(const AVFrame& picture, int plane, int x, int y) {
    return picture.data[plane][(y / 2) * picture.linesize[plane] + x / 2];
}

// Decodes a file's video picture by picture, in order, and gives each with its time in seconds
// to `visit` until it returns false.
template <typename Visit>
inline void visitPictures(const std::filesystem::path& path, Visit visit) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0)
        return;
    AVInputFormatContextPtr input(raw);
    avformat_find_stream_info(input.get(), nullptr);
    const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0)
        return;
    const AVStream* stream = input->streams[index];
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    AVCodecContextPtr decoder(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(decoder.get(), stream->codecpar);
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0)
        return;
    AVPacketPtr packet(av_packet_alloc());
    AVFramePtr frame(av_frame_alloc());
    bool going = true;
    auto drain = [&] {
        while (going && avcodec_receive_frame(decoder.get(), frame.get()) >= 0)
            going = visit(*frame, double(frame->best_effort_timestamp) * av_q2d(stream->time_base));
    };
    while (going && av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == index && avcodec_send_packet(decoder.get(), packet.get()) >= 0)
            drain();
        av_packet_unref(packet.get());
    }
    if (going) {
        avcodec_send_packet(decoder.get(), nullptr);
        drain();
    }
}

// Every decoded picture of a file's video with its time in seconds.
inline void forEachPicture(const std::filesystem::path& path,
                           const std::function<void(const AVFrame&, double)>& f) {
    visitPictures(path, [&](const AVFrame& picture, double time) {
        f(picture, time);
        return true;
    });
}

// The first decoded video picture of a file.
inline AVFramePtr decodeFirstPicture(const std::filesystem::path& path) {
    AVFramePtr first;
    visitPictures(path, [&](const AVFrame& picture, double) {
        first.reset(av_frame_clone(&picture));
        return false;
    });
    return first;
}

// The first channel of a file's first (or `streamOrdinal`th) audio track, as floats in -1..1.
inline std::vector<float> decodeFirstAudioChannel(const std::filesystem::path& path,
                                                  int streamOrdinal = 0) {
    const auto audio = decodeAudio(path, streamOrdinal);
    return audio && !audio->channels.empty() ? audio->channels[0] : std::vector<float>();
}

// Index of the first sample louder than the threshold, or -1.
inline long firstSound(const std::vector<float>& samples, float threshold = 0.01f) {
    for (size_t i = 0; i < samples.size(); ++i) {
        if (std::abs(samples[i]) > threshold)
            return long(i);
    }
    return -1;
}
