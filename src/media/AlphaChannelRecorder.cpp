#include "media/AlphaChannelRecorder.h"

#include "media/AlphaRecordingError.h"
#include "media/FFmpegHandles.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace {
// An encoder keeps transparency when it takes a YUV picture with an alpha plane (libx265 in
// later FFmpeg releases) or has the alpha quality control of the VideoToolbox encoder. Packed
// RGBA inputs alone prove nothing: NVENC takes them and drops the alpha.
bool keepsAlpha(const AVCodec* codec) {
    if (codec->priv_class &&
        av_opt_find2(const_cast<AVClass**>(&codec->priv_class), "alpha_quality", nullptr, 0,
                     AV_OPT_SEARCH_FAKE_OBJ, nullptr))
        return true;
    for (const AVPixelFormat* format = codec->pix_fmts; format && *format != AV_PIX_FMT_NONE;
         ++format) {
        const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(*format);
        if (descriptor && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA) &&
            !(descriptor->flags & AV_PIX_FMT_FLAG_RGB) && descriptor->nb_components == 4)
            return true;
    }
    return false;
}
} // namespace

std::optional<std::string> AlphaChannelRecorder::hevcWithAlphaEncoderName() {
    void* state = nullptr;
    while (const AVCodec* codec = av_codec_iterate(&state)) {
        if (av_codec_is_encoder(codec) && codec->id == AV_CODEC_ID_HEVC && keepsAlpha(codec))
            return std::string(codec->name);
    }
    return std::nullopt;
}

bool AlphaChannelRecorder::isHEVCWithAlphaSupported() {
    return hevcWithAlphaEncoderName().has_value();
}

bool AlphaChannelRecorder::isCodecSupported(AlphaVideoCodec codec) {
    if (codec == AlphaVideoCodec::hevcWithAlpha)
        return isHEVCWithAlphaSupported();
    // ProRes 4444 is built into every FFmpeg we run on.
    return true;
}

std::vector<AlphaVideoCodec> AlphaChannelRecorder::supportedAlphaCodecs() {
    std::vector<AlphaVideoCodec> codecs;
    for (AlphaVideoCodec codec : allAlphaVideoCodecs) {
        if (isCodecSupported(codec))
            codecs.push_back(codec);
    }
    return codecs;
}

std::optional<AlphaVideoCodec> AlphaChannelRecorder::recommendedAlphaCodec() {
    if (isCodecSupported(AlphaVideoCodec::hevcWithAlpha))
        return AlphaVideoCodec::hevcWithAlpha;
    if (isCodecSupported(AlphaVideoCodec::proRes4444))
        return AlphaVideoCodec::proRes4444;
    return std::nullopt;
}

void AlphaChannelRecorder::validateResolution(int width, int height, AlphaVideoCodec codec) {
    if (width < 1 || height < 1)
        throw AlphaRecordingError::invalidResolution(width, height);
    if (width > maximumDimension || height > maximumDimension)
        throw AlphaRecordingError::resolutionTooLarge(width, height, maximumDimension);
    // 4:2:0 chroma needs even sides; ProRes 4444 has full chroma and takes any size.
    if (codec == AlphaVideoCodec::hevcWithAlpha && (width % 2 != 0 || height % 2 != 0))
        throw AlphaRecordingError::invalidAlignment(width, height, 2);
}

VideoCodecSettings AlphaChannelRecorder::videoSettings(int width, int height, AlphaVideoCodec codec,
                                                       double quality) {
    VideoCodecSettings settings;
    settings.width = width;
    settings.height = height;
    switch (codec) {
    case AlphaVideoCodec::hevcWithAlpha:
        settings.codec = VideoCodecSettings::Codec::hevcWithAlpha;
        // Unlike the ordinary bitrate formula, the frame rate does not enter here.
        settings.averageBitRate = static_cast<int64_t>(width * height * 0.15 * quality);
        settings.expectedSourceFrameRate = 60;
        settings.allowFrameReordering = false;
        break;
    case AlphaVideoCodec::proRes4444:
        settings.codec = VideoCodecSettings::Codec::proRes4444;
        break;
    case AlphaVideoCodec::proRes4444XQ:
        settings.codec = VideoCodecSettings::Codec::proRes4444XQ;
        break;
    }
    return settings;
}
