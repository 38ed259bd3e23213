#include "media/export/AudioPacketSource.h"

#include "media/FFmpegHandles.h"
#include "media/export/MediaInput.h"

#include <algorithm>

struct AudioPacketSource::Demuxer {
    AVInputFormatContextPtr format;
    AVStream* stream = nullptr; // owned by format
    int64_t origin = 0;
};

AudioPacketSource::AudioPacketSource() : m_demuxer(std::make_unique<Demuxer>()) {}
AudioPacketSource::~AudioPacketSource() = default;

std::unique_ptr<AudioPacketSource> AudioPacketSource::open(const std::filesystem::path& path,
                                                           std::string& error) {
    std::unique_ptr<AudioPacketSource> source(new AudioPacketSource());
    Demuxer& d = *source->m_demuxer;
    d.format = openMediaInput(path, error);
    if (!d.format)
        return nullptr;
    AVFormatContext* raw = d.format.get();
    const int index = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (index < 0)
        return nullptr;
    for (unsigned i = 0; i < raw->nb_streams; ++i)
        raw->streams[i]->discard = int(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    d.stream = raw->streams[index];
    if (raw->start_time != AV_NOPTS_VALUE)
        d.origin = av_rescale_q(raw->start_time, AV_TIME_BASE_Q, d.stream->time_base);
    return source;
}

const AVCodecParameters* AudioPacketSource::parameters() const {
    return m_demuxer->stream->codecpar;
}
int AudioPacketSource::timeBaseNum() const {
    return m_demuxer->stream->time_base.num;
}
int AudioPacketSource::timeBaseDen() const {
    return m_demuxer->stream->time_base.den;
}

bool AudioPacketSource::fitsMpeg4() const {
    const AVCodecID codec = m_demuxer->stream->codecpar->codec_id;
    return codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_ALAC || codec == AV_CODEC_ID_OPUS ||
           codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_MP3;
}

std::shared_ptr<AVPacket> AudioPacketSource::next(double& seconds) {
    Demuxer& d = *m_demuxer;
    std::shared_ptr<AVPacket> packet(av_packet_alloc(), [](AVPacket* p) { av_packet_free(&p); });
    while (av_read_frame(d.format.get(), packet.get()) >= 0) {
        if (packet->stream_index != d.stream->index) {
            av_packet_unref(packet.get());
            continue;
        }
        if (packet->pts != AV_NOPTS_VALUE)
            packet->pts -= d.origin;
        if (packet->dts != AV_NOPTS_VALUE)
            packet->dts -= d.origin;
        const int64_t ts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        seconds = ts == AV_NOPTS_VALUE ? 0.0 : double(ts) * av_q2d(d.stream->time_base);
        packet->pos = -1;
        return packet;
    }
    return nullptr;
}
