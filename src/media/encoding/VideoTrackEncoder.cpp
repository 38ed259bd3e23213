#include "media/encoding/VideoTrackEncoder.h"

#include "media/encoding/PacketDrain.h"

#include "core/support/Log.h"
#include "media/AlphaChannelRecorder.h"
#include "media/VideoFrame.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <libyuv/convert_from_argb.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace {
constexpr int pictureAlignment = 64;

enum class HardwareKind { none, vaapi, nvenc };
} // namespace

struct VideoTrackEncoder::Candidate {
    std::string name;
    HardwareKind hardware = HardwareKind::none;
};

namespace {
using Candidate = VideoTrackEncoder::Candidate;

std::optional<std::string> renderNode() {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/dri", error)) {
        if (entry.path().filename().string().rfind("renderD", 0) == 0)
            return entry.path().string();
    }
    return std::nullopt;
}

bool hasNvidiaDevice() {
    std::error_code error;
    return std::filesystem::exists("/dev/nvidia0", error);
}

std::vector<Candidate> candidates(VideoCodecSettings::Codec codec, const EncoderTuning& tuning) {
    std::vector<Candidate> list;
    switch (codec) {
    case VideoCodecSettings::Codec::h264:
    case VideoCodecSettings::Codec::hevc: {
        bool h264 = codec == VideoCodecSettings::Codec::h264;
        if (tuning.allowHardware && tuning.preferredHardware != "nvenc")
            list.push_back({h264 ? "h264_vaapi" : "hevc_vaapi", HardwareKind::vaapi});
        if (tuning.allowHardware && tuning.preferredHardware != "vaapi")
            list.push_back({h264 ? "h264_nvenc" : "hevc_nvenc", HardwareKind::nvenc});
        list.push_back({h264 ? "libx264" : "libx265"});
        break;
    }
    case VideoCodecSettings::Codec::hevcWithAlpha:
        if (auto name = AlphaChannelRecorder::hevcWithAlphaEncoderName())
            list.push_back({*name});
        break;
    case VideoCodecSettings::Codec::proRes4444:
    case VideoCodecSettings::Codec::proRes4444XQ:
        list.push_back({tuning.proResEncoder});
        list.push_back({"prores_ks"});
        list.push_back({"prores_aw"});
        break;
    }
    return list;
}

AVColorPrimaries primariesFrom(const std::string& name) {
    if (name == "ITU_R_709_2")
        return AVCOL_PRI_BT709;
    if (name == "SMPTE_C")
        return AVCOL_PRI_SMPTE170M;
    if (name == "ITU_R_2020")
        return AVCOL_PRI_BT2020;
    if (name == "P3_D65")
        return AVCOL_PRI_SMPTE432;
    return AVCOL_PRI_UNSPECIFIED;
}

AVColorTransferCharacteristic transferFrom(const std::string& name) {
    if (name == "ITU_R_709_2")
        return AVCOL_TRC_BT709;
    if (name == "ITU_R_2100_HLG")
        return AVCOL_TRC_ARIB_STD_B67;
    if (name == "SMPTE_ST_2084_PQ")
        return AVCOL_TRC_SMPTE2084;
    if (name == "IEC_sRGB")
        return AVCOL_TRC_IEC61966_2_1;
    if (name == "Linear")
        return AVCOL_TRC_LINEAR;
    return AVCOL_TRC_UNSPECIFIED;
}

AVColorSpace matrixFrom(const std::string& name) {
    if (name == "ITU_R_709_2")
        return AVCOL_SPC_BT709;
    if (name == "ITU_R_601_4")
        return AVCOL_SPC_SMPTE170M;
    if (name == "ITU_R_2020")
        return AVCOL_SPC_BT2020_NCL;
    return AVCOL_SPC_UNSPECIFIED;
}

// The first YUV-with-alpha format the encoder takes, for the transparency codecs.
AVPixelFormat alphaFormatOf(const AVCodec* codec) {
    for (const AVPixelFormat* format = codec->pix_fmts; format && *format != AV_PIX_FMT_NONE;
         ++format) {
        const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(*format);
        if (descriptor && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA) &&
            !(descriptor->flags & AV_PIX_FMT_FLAG_RGB))
            return *format;
    }
    return codec->pix_fmts ? codec->pix_fmts[0] : AV_PIX_FMT_NONE;
}

struct OpenedEncoder {
    AVCodecContextPtr context;
    AVPixelFormat softwareFormat = AV_PIX_FMT_YUV420P;
};

// Opens one encoder with the settings; an error text on failure.
std::optional<OpenedEncoder> openEncoder(const Candidate& candidate,
                                         const VideoCodecSettings& settings,
                                         const EncoderTuning& tuning, bool globalHeader,
                                         std::string& error) {
    const AVCodec* codec = avcodec_find_encoder_by_name(candidate.name.c_str());
    if (!codec) {
        error = candidate.name + " is not in this FFmpeg";
        return std::nullopt;
    }
    OpenedEncoder opened;
    opened.context.reset(avcodec_alloc_context3(codec));
    AVCodecContext* context = opened.context.get();
    context->width = settings.width;
    context->height = settings.height;
    context->time_base = AVRational{1, VideoTrackEncoder::timeBaseDen};
    int frameRate = settings.expectedSourceFrameRate.value_or(60);
    context->framerate = AVRational{frameRate, 1};
    // At most a second of frames between key frames; encode() also forces one after a second
    // of media time, which is what counts when a still screen sends a frame now and then.
    context->gop_size = std::max(1, frameRate);
    if (!settings.allowFrameReordering)
        context->max_b_frames = 0;
    if (settings.averageBitRate)
        context->bit_rate = *settings.averageBitRate;
    if (globalHeader)
        context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context->color_range = AVCOL_RANGE_MPEG;
    if (settings.colorProperties) {
        context->color_primaries = primariesFrom(settings.colorProperties->colorPrimaries);
        context->color_trc = transferFrom(settings.colorProperties->transferFunction);
        context->colorspace = matrixFrom(settings.colorProperties->yCbCrMatrix);
    }

    AVDictionary* options = nullptr;
    bool proRes = settings.codec == VideoCodecSettings::Codec::proRes4444 ||
                  settings.codec == VideoCodecSettings::Codec::proRes4444XQ;
    // The H.264/H.265 paths convert with libyuv, whose RGB to YUV conversions exist only with
    // the BT.601 matrix: the file says so, or every player would decode with the wrong matrix
    // and shift the colours. Primaries and transfer stay as given (sRGB content is Rec. 709
    // there). The alpha paths convert with libswscale and honour the requested matrix.
    if (!proRes && settings.codec != VideoCodecSettings::Codec::hevcWithAlpha)
        context->colorspace = AVCOL_SPC_SMPTE170M;
    else if (context->colorspace == AVCOL_SPC_UNSPECIFIED)
        context->colorspace = AVCOL_SPC_BT709; // what the conversion then uses
    AVBufferRefPtr device;
    if (proRes) {
        opened.softwareFormat = AV_PIX_FMT_YUVA444P10;
        av_dict_set(&options, "profile",
                    settings.codec == VideoCodecSettings::Codec::proRes4444XQ ? "5" : "4", 0);
        // The encoder's own 4444 default is three bits of alpha; keep all sixteen.
        av_dict_set(&options, "alpha_bits", "16", 0);
    } else if (settings.codec == VideoCodecSettings::Codec::hevcWithAlpha) {
        opened.softwareFormat = alphaFormatOf(codec);
    } else if (candidate.hardware == HardwareKind::vaapi) {
        auto node = renderNode();
        AVBufferRef* rawDevice = nullptr;
        if (!node || av_hwdevice_ctx_create(&rawDevice, AV_HWDEVICE_TYPE_VAAPI, node->c_str(),
                                            nullptr, 0) < 0) {
            error = "no VAAPI device";
            return std::nullopt;
        }
        device.reset(rawDevice);
        AVBufferRefPtr frames(av_hwframe_ctx_alloc(device.get()));
        auto* framesContext = reinterpret_cast<AVHWFramesContext*>(frames->data);
        framesContext->format = AV_PIX_FMT_VAAPI;
        framesContext->sw_format = AV_PIX_FMT_NV12;
        framesContext->width = settings.width & ~1; // NV12 is 4:2:0, see below
        framesContext->height = settings.height & ~1;
        framesContext->initial_pool_size = 16;
        if (int result = av_hwframe_ctx_init(frames.get()); result < 0) {
            error = ffmpegErrorText(result);
            return std::nullopt;
        }
        context->hw_frames_ctx = av_buffer_ref(frames.get());
        context->pix_fmt = AV_PIX_FMT_VAAPI;
        opened.softwareFormat = AV_PIX_FMT_NV12;
    } else if (candidate.hardware == HardwareKind::nvenc) {
        av_dict_set(&options, "forced-idr", "1", 0);
        av_dict_set(&options, "preset", "p1", 0);
        av_dict_set(&options, "tune", "ll", 0);
        av_dict_set(&options, "profile",
                    settings.codec == VideoCodecSettings::Codec::h264 ? "high" : "main", 0);
    } else if (settings.codec == VideoCodecSettings::Codec::h264) {
        const int64_t pixelRate = int64_t(settings.width) * settings.height * frameRate;
        context->thread_count = pixelRate <= tuning.singleThreadH264PixelRate ? 1 : 0;
        av_dict_set(&options, "preset", tuning.softwareH264Preset.c_str(), 0);
        if (!tuning.softwareH264Tune.empty())
            av_dict_set(&options, "tune", tuning.softwareH264Tune.c_str(), 0);
        av_dict_set(&options, "profile", "high", 0);
        av_dict_set(&options, "forced-idr", "1", 0);
        if (tuning.constantRateFactor)
            av_dict_set_int(&options, "crf", *tuning.constantRateFactor, 0);
    } else {
        av_dict_set(&options, "forced-idr", "1", 0);
        av_dict_set(&options, "preset", tuning.softwareHEVCPreset.c_str(), 0);
        // x265 otherwise holds a dozen frames back (look-ahead, B-frames, frame threads): at a
        // still screen's frame a second that is many seconds a crash would take with it.
        av_dict_set(&options, "tune", "zerolatency", 0);
        av_dict_set(&options, "profile", "main", 0);
        av_dict_set(&options, "x265-params", "log-level=error", 0);
        if (tuning.constantRateFactor)
            av_dict_set_int(&options, "crf", *tuning.constantRateFactor, 0);
    }
    if (context->pix_fmt == AV_PIX_FMT_NONE)
        context->pix_fmt = opened.softwareFormat;
    // A 4:2:0 picture shares each chroma sample among 2x2 pixels and the encoders refuse odd
    // sizes, so a window of odd size loses its last column or row in the file.
    if (const AVPixFmtDescriptor* layout = av_pix_fmt_desc_get(opened.softwareFormat)) {
        if (layout->log2_chroma_w == 1)
            context->width &= ~1;
        if (layout->log2_chroma_h == 1)
            context->height &= ~1;
    }
    int result = avcodec_open2(context, codec, &options);
    av_dict_free(&options);
    if (result < 0) {
        error = candidate.name + ": " + ffmpegErrorText(result);
        return std::nullopt;
    }
    return opened;
}

// Hardware encoders are listed in every Debian FFmpeg, but only work with a device and driver:
// each is tried once per process on a small picture, and used only when a frame comes out.
bool hardwareEncoderWorks(
    const Candidate& candidate, const VideoCodecSettings& settings,
    const std::function<std::unique_ptr<VideoTrackEncoder>(
        const Candidate&, const VideoCodecSettings&, std::string&)>& probeWith) {
    if (candidate.hardware == HardwareKind::vaapi && !renderNode())
        return false;
    if (candidate.hardware == HardwareKind::nvenc && !hasNvidiaDevice())
        return false;
    static std::mutex mutex;
    static std::map<std::string, bool> verdicts;
    std::lock_guard lock(mutex);
    if (auto found = verdicts.find(candidate.name); found != verdicts.end())
        return found->second;
    VideoCodecSettings probe = settings;
    probe.width = 256;
    probe.height = 256;
    std::string error;
    bool works = false;
    // A full round through the real path: conversion, upload, encode, drain.
    if (auto encoder = probeWith(candidate, probe, error)) {
        {
            VideoFrame frame =
                VideoFrame::allocate(256, 256, MediaTime::zero(), MediaTime::make(1, 60));
            if (!frame.isNull()) {
                std::fill_n(frame.mutableBytes(), size_t(frame.bytesPerRow()) * 256, uint8_t(0));
                int packets = 0;
                auto count = [&packets](AVPacket*) { return ++packets, 0; };
                works = encoder->encode(frame, 0, count) >= 0 && encoder->flush(count) >= 0 &&
                        packets > 0;
            }
        }
    }
    verdicts[candidate.name] = works;
    logLine("🔍 Hardware encoder {}: {}", candidate.name, works ? "working" : "not available");
    return works;
}
} // namespace

std::unique_ptr<VideoTrackEncoder> VideoTrackEncoder::create(const VideoCodecSettings& settings,
                                                             const EncoderTuning& tuning,
                                                             bool globalHeader,
                                                             std::string& error) {
    std::vector<Candidate> list = candidates(settings.codec, tuning);
    if (list.empty())
        error = "no encoder for this codec";
    auto probeWith = [&tuning](const Candidate& candidate, const VideoCodecSettings& probe,
                               std::string& probeError) {
        return createWith(candidate, probe, tuning, false, probeError);
    };
    for (const Candidate& candidate : list) {
        if (candidate.hardware != HardwareKind::none &&
            !hardwareEncoderWorks(candidate, settings, probeWith))
            continue;
        if (auto encoder = createWith(candidate, settings, tuning, globalHeader, error))
            return encoder;
    }
    return nullptr;
}

std::unique_ptr<VideoTrackEncoder>
VideoTrackEncoder::createWith(const Candidate& candidate, const VideoCodecSettings& settings,
                              const EncoderTuning& tuning, bool globalHeader, std::string& error) {
    auto opened = openEncoder(candidate, settings, tuning, globalHeader, error);
    if (!opened)
        return nullptr;
    std::unique_ptr<VideoTrackEncoder> encoder(new VideoTrackEncoder());
    encoder->m_context = std::move(opened->context);
    encoder->m_encoderName = candidate.name;
    encoder->m_softwareFormat = opened->softwareFormat;
    encoder->m_packet.reset(av_packet_alloc());
    if (candidate.hardware == HardwareKind::vaapi)
        encoder->m_conversion = Conversion::nv12Upload;
    else if (opened->softwareFormat == AV_PIX_FMT_YUV420P)
        encoder->m_conversion = Conversion::i420;
    else
        encoder->m_conversion = Conversion::swscale;
    if (encoder->m_conversion == Conversion::swscale) {
        encoder->m_scaler = encoder->makeScaler(AV_PIX_FMT_BGRA);
        if (!encoder->m_scaler) {
            error = "no colour conversion to " +
                    std::string(av_get_pix_fmt_name(opened->softwareFormat));
            return nullptr;
        }
    }
    encoder->m_pictureSize =
        av_image_get_buffer_size(opened->softwareFormat, encoder->m_context->width,
                                 encoder->m_context->height, pictureAlignment);
    encoder->m_picturePool.reset(av_buffer_pool_init(size_t(encoder->m_pictureSize), nullptr));
    return encoder;
}

VideoTrackEncoder::~VideoTrackEncoder() = default;

SwsContextPtr VideoTrackEncoder::makeScaler(AVPixelFormat sourceFormat) const {
    const int width = m_context->width, height = m_context->height;
    SwsContextPtr scaler(sws_getContext(width, height, sourceFormat, width, height,
                                        m_softwareFormat, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler)
        return scaler;
    // Full-range RGB in, studio-range YUV out with the matrix the file is tagged with.
    const bool bt709 =
        m_context->colorspace != AVCOL_SPC_SMPTE170M && m_context->colorspace != AVCOL_SPC_BT470BG;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(SWS_CS_DEFAULT), 1,
                             sws_getCoefficients(bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601), 0, 0,
                             1 << 16, 1 << 16);
    return scaler;
}

AVFramePtr VideoTrackEncoder::convert(const VideoFrame& source) {
    AVFramePtr picture(av_frame_alloc());
    if (!picture)
        return picture;
    // Pooled pictures: the encoder may keep a reference to one while the next is filled.
    picture->buf[0] = av_buffer_pool_get(m_picturePool.get());
    if (!picture->buf[0])
        return nullptr;
    picture->format = m_softwareFormat;
    picture->width = m_context->width;
    picture->height = m_context->height;
    av_image_fill_arrays(picture->data, picture->linesize, picture->buf[0]->data, m_softwareFormat,
                         picture->width, picture->height, pictureAlignment);
    int width = std::min(source.width(), picture->width);
    int height = std::min(source.height(), picture->height);
    // libyuv's "ARGB" is BGRA in memory order, which is what capture delivers. Its conversions
    // use the BT.601 matrix, and the track is tagged with that matrix (see create()).
    switch (m_conversion) {
    case Conversion::i420:
        libyuv::ARGBToI420(source.bytes(), source.bytesPerRow(), picture->data[0],
                           picture->linesize[0], picture->data[1], picture->linesize[1],
                           picture->data[2], picture->linesize[2], width, height);
        break;
    case Conversion::nv12Upload:
        libyuv::ARGBToNV12(source.bytes(), source.bytesPerRow(), picture->data[0],
                           picture->linesize[0], picture->data[1], picture->linesize[1], width,
                           height);
        break;
    case Conversion::swscale: {
        // A screen grab's fourth byte is padding, not transparency: read as opaque.
        SwsContext* scaler = m_scaler.get();
        if (!source.hasAlpha()) {
            if (!m_opaqueScaler)
                m_opaqueScaler = makeScaler(AV_PIX_FMT_BGR0);
            scaler = m_opaqueScaler.get();
        }
        if (!scaler)
            return nullptr;
        const uint8_t* planes[1] = {source.bytes()};
        int strides[1] = {source.bytesPerRow()};
        sws_scale(scaler, planes, strides, 0, height, picture->data, picture->linesize);
        break;
    }
    }
    if (m_conversion != Conversion::nv12Upload)
        return picture;
    AVFramePtr uploaded(av_frame_alloc());
    if (!uploaded || av_hwframe_get_buffer(m_context->hw_frames_ctx, uploaded.get(), 0) < 0 ||
        av_hwframe_transfer_data(uploaded.get(), picture.get(), 0) < 0)
        return nullptr;
    return uploaded;
}

int VideoTrackEncoder::encode(const VideoFrame& frame, int64_t pts, const PacketSink& sink) {
    if (frame.isNull())
        return 0;
    AVFramePtr picture = convert(frame);
    if (!picture)
        return AVERROR(ENOMEM);
    picture->pts = pts;
    // Each key frame starts a file fragment, and a fragment reaches the disk when the next one
    // starts: key frames by media time bound what a crash can cost, however few frames come.
    if (m_lastKeyFramePts == AV_NOPTS_VALUE || pts - m_lastKeyFramePts >= keyFrameInterval) {
        picture->pict_type = AV_PICTURE_TYPE_I;
        m_lastKeyFramePts = pts;
    }
    picture->color_range = m_context->color_range;
    picture->colorspace = m_context->colorspace;
    picture->color_primaries = m_context->color_primaries;
    picture->color_trc = m_context->color_trc;
    int result = avcodec_send_frame(m_context.get(), picture.get());
    if (result < 0 && result != AVERROR(EAGAIN))
        return result;
    return drain(sink);
}

int VideoTrackEncoder::flush(const PacketSink& sink) {
    int result = avcodec_send_frame(m_context.get(), nullptr);
    if (result < 0 && result != AVERROR_EOF)
        return result;
    return drain(sink);
}

int VideoTrackEncoder::drain(const PacketSink& sink) {
    return drainEncoder(m_context.get(), m_packet.get(), [this, &sink](AVPacket* packet) {
        // The encoder's own key frames (every gop_size frames) count as well.
        if ((packet->flags & AV_PKT_FLAG_KEY) && packet->pts != AV_NOPTS_VALUE)
            m_lastKeyFramePts = std::max(m_lastKeyFramePts, packet->pts);
        return sink(packet);
    });
}
