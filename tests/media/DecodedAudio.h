#pragma once

#include "media/FFmpegHandles.h"

#include <cmath>
#include <filesystem>
#include <optional>
#include <vector>

// The first audio stream of a file decoded to float, one vector a channel, as a player hears it.
struct DecodedAudio {
    int sampleRate = 0;
    std::vector<std::vector<float>> channels;

    size_t frames() const { return channels.empty() ? 0 : channels[0].size(); }
    double seconds() const { return sampleRate ? double(frames()) / sampleRate : 0; }

    // The pitch of a steady tone in [from, to) seconds of a channel, by its rising zero crossings.
    double toneFrequency(int channel, double from, double to) const {
        const auto& samples = channels[size_t(channel)];
        const size_t first = size_t(from * sampleRate);
        const size_t last = std::min(samples.size(), size_t(to * sampleRate));
        std::optional<double> firstCrossing;
        double lastCrossing = 0;
        int crossings = 0;
        for (size_t i = first + 1; i < last; ++i) {
            if (samples[i - 1] < 0 && samples[i] >= 0) {
                // Between the two samples, where the line through them crosses zero.
                const double at = double(i - 1) + samples[i - 1] / (samples[i - 1] - samples[i]);
                if (!firstCrossing)
                    firstCrossing = at;
                else
                    ++crossings;
                lastCrossing = at;
            }
        }
        if (!firstCrossing || crossings == 0)
            return 0;
        return crossings * sampleRate / (lastCrossing - *firstCrossing);
    }

    // The root mean square of a channel over [from, to) seconds.
    double level(int channel, double from, double to) const {
        const auto& samples = channels[size_t(channel)];
        const size_t first = size_t(from * sampleRate);
        const size_t last = std::min(samples.size(), size_t(to * sampleRate));
        double sum = 0;
        for (size_t i = first; i < last; ++i)
            sum += double(samples[i]) * samples[i];
        return last > first ? std::sqrt(sum / double(last - first)) : 0;
    }
};

// The file's main audio stream, or with `ordinal` its audio streams counted in file order.
inline std::optional<DecodedAudio> decodeAudio(const std::filesystem::path& path,
                                               int ordinal = -1) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0)
        return std::nullopt;
    AVInputFormatContextPtr input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0)
        return std::nullopt;
    int index = -1;
    if (ordinal < 0)
        index = av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    for (unsigned i = 0, seen = 0; ordinal >= 0 && i < input->nb_streams; ++i) {
        if (input->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO && int(seen++) == ordinal)
            index = int(i);
    }
    if (index < 0)
        return std::nullopt;
    const AVCodecParameters* parameters = input->streams[index]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    AVCodecContextPtr context(avcodec_alloc_context3(codec));
    if (!codec || avcodec_parameters_to_context(context.get(), parameters) < 0 ||
        avcodec_open2(context.get(), codec, nullptr) < 0)
        return std::nullopt;
    DecodedAudio audio;
    audio.sampleRate = context->sample_rate;
    audio.channels.resize(size_t(context->ch_layout.nb_channels));
    AVPacketPtr packet(av_packet_alloc());
    AVFramePtr frame(av_frame_alloc());
    auto receive = [&] {
        while (avcodec_receive_frame(context.get(), frame.get()) >= 0) {
            const auto format = AVSampleFormat(frame->format);
            const bool planar = av_sample_fmt_is_planar(format);
            const int count = int(audio.channels.size());
            for (int c = 0; c < count; ++c) {
                for (int i = 0; i < frame->nb_samples; ++i) {
                    const uint8_t* plane = frame->extended_data[planar ? c : 0];
                    const int at = planar ? i : i * count + c;
                    float value = 0;
                    if (format == AV_SAMPLE_FMT_FLTP || format == AV_SAMPLE_FMT_FLT)
                        value = reinterpret_cast<const float*>(plane)[at];
                    else if (format == AV_SAMPLE_FMT_S16P || format == AV_SAMPLE_FMT_S16)
                        value = reinterpret_cast<const int16_t*>(plane)[at] / 32768.0f;
                    else if (format == AV_SAMPLE_FMT_S32P || format == AV_SAMPLE_FMT_S32)
                        value = float(reinterpret_cast<const int32_t*>(plane)[at] / 2147483648.0);
                    audio.channels[size_t(c)].push_back(value);
                }
            }
        }
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == index && avcodec_send_packet(context.get(), packet.get()) >= 0)
            receive();
        av_packet_unref(packet.get());
    }
    avcodec_send_packet(context.get(), nullptr);
    receive();
    return audio;
}
