#pragma once

#include "media/FFmpegHandles.h"

#include <cmath>
#include <filesystem>
#include <vector>

// Where, in a movie's own time, the picture turns white and a click begins after at least half
// a second of quiet: the marks an A/V sync scene leaves, read back as a player would see them.
struct FlashesAndClicks {
    std::vector<double> flashes;
    std::vector<double> clicks;

    // Each flash's offset to the nearest click (positive: the sound comes later), for flashes
    // with a click within `window` seconds.
    std::vector<double> offsets(double window = 0.4) const {
        std::vector<double> result;
        for (double flash : flashes) {
            double best = window;
            for (double click : clicks)
                if (std::fabs(click - flash) < std::fabs(best))
                    best = click - flash;
            if (std::fabs(best) < window)
                result.push_back(best);
        }
        return result;
    }
};

inline FlashesAndClicks findFlashesAndClicks(const std::filesystem::path& path) {
    FlashesAndClicks events;
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0)
        return events;
    AVInputFormatContextPtr input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0)
        return events;
    std::vector<AVCodecContextPtr> decoders(input->nb_streams);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters* parameters = input->streams[i]->codecpar;
        const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
        decoders[i].reset(avcodec_alloc_context3(codec));
        if (!codec || avcodec_parameters_to_context(decoders[i].get(), parameters) < 0 ||
            avcodec_open2(decoders[i].get(), codec, nullptr) < 0)
            decoders[i].reset();
    }
    AVPacketPtr packet(av_packet_alloc());
    AVFramePtr frame(av_frame_alloc());
    bool white = false;
    int64_t quiet = 1 << 30; // samples since the last loud one
    auto drain = [&](unsigned index) {
        AVCodecContext* decoder = decoders[index].get();
        const double base = av_q2d(input->streams[index]->time_base);
        while (avcodec_receive_frame(decoder, frame.get()) >= 0) {
            const double start = double(frame->best_effort_timestamp) * base;
            if (decoder->codec_type == AVMEDIA_TYPE_VIDEO) {
                // The mean of one row of the luma plane, a quarter down the picture.
                const uint8_t* row = frame->data[0] + (frame->height / 4) * frame->linesize[0];
                double sum = 0;
                for (int x = 0; x < frame->width; ++x)
                    sum += row[x];
                const bool isWhite = sum / frame->width > 200;
                if (isWhite && !white)
                    events.flashes.push_back(start);
                white = isWhite;
            } else if (decoder->codec_type == AVMEDIA_TYPE_AUDIO &&
                       frame->format == AV_SAMPLE_FMT_FLTP) {
                const auto* samples = reinterpret_cast<const float*>(frame->extended_data[0]);
                for (int i = 0; i < frame->nb_samples; ++i) {
                    if (std::fabs(samples[i]) > 0.2f) {
                        if (quiet > frame->sample_rate / 2)
                            events.clicks.push_back(start + double(i) / frame->sample_rate);
                        quiet = 0;
                    } else {
                        ++quiet;
                    }
                }
            }
        }
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const auto index = unsigned(packet->stream_index);
        if (index < decoders.size() && decoders[index] &&
            avcodec_send_packet(decoders[index].get(), packet.get()) >= 0)
            drain(index);
        av_packet_unref(packet.get());
    }
    return events;
}
