#include "media/encoding/MediaEncoderProbe.h"

#include "media/encoding/VideoTrackEncoder.h"

bool MediaEncoderProbe::canOpenH264Encoder(int width, int height) {
    VideoCodecSettings settings;
    settings.codec = VideoCodecSettings::Codec::h264;
    settings.width = width;
    settings.height = height;
    settings.averageBitRate = 1'000'000;
    std::string error;
    return VideoTrackEncoder::create(settings, EncoderTuning{}, false, error) != nullptr;
}
