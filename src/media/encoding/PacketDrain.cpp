#include "media/encoding/PacketDrain.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

int drainEncoder(AVCodecContext* context, AVPacket* packet, const PacketSink& sink) {
    while (true) {
        int result = avcodec_receive_packet(context, packet);
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return 0;
        if (result < 0)
            return result;
        result = sink(packet);
        av_packet_unref(packet);
        if (result < 0)
            return result;
    }
}
