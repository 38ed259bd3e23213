#pragma once

#include "media/encoding/PacketDrain.h"

#include "media/FFmpegHandles.h"
#include "media/VideoCodecSettings.h"
#include "media/encoding/EncoderTuning.h"

#include <functional>
#include <memory>
#include <string>

class VideoFrame;

// Turns BGRA frames into compressed packets of one codec: picks the encoder (a working hardware
// encoder first, else software), converts the colours once and feeds the encoder. Used on the
// writer's worker thread only, after creation.
class VideoTrackEncoder final {
public:
    // Receives each packet in the encoder's time base; a negative result stops the encoding.
    using PacketSink = ::PacketSink;

    static constexpr int timeBaseDen = 90000;
    // The longest media time between two key frames, in 1/timeBaseDen.
    static constexpr int64_t keyFrameInterval = timeBaseDen;

    // One encoder to try (its name and how it reaches its hardware); defined in the .cpp.
    struct Candidate;

    // Nothing and an error text when no encoder for the settings opens.
    static std::unique_ptr<VideoTrackEncoder> create(const VideoCodecSettings& settings,
                                                     const EncoderTuning& tuning, bool globalHeader,
                                                     std::string& error);
    ~VideoTrackEncoder();

    const AVCodecContext* context() const { return m_context.get(); }
    const std::string& encoderName() const { return m_encoderName; }

    // pts in 1/timeBaseDen; 0 or a negative AVERROR.
    int encode(const VideoFrame& frame, int64_t pts, const PacketSink& sink);
    int flush(const PacketSink& sink);

private:
    enum class Conversion { i420, nv12Upload, swscale };

    VideoTrackEncoder() = default;
    // Opens exactly this encoder, without probing hardware.
    static std::unique_ptr<VideoTrackEncoder> createWith(const Candidate& candidate,
                                                         const VideoCodecSettings& settings,
                                                         const EncoderTuning& tuning,
                                                         bool globalHeader, std::string& error);
    AVFramePtr convert(const VideoFrame& frame);
    SwsContextPtr makeScaler(AVPixelFormat sourceFormat) const;
    int drain(const PacketSink& sink);

    AVCodecContextPtr m_context;
    std::string m_encoderName;
    Conversion m_conversion = Conversion::i420;
    AVPixelFormat m_softwareFormat = AV_PIX_FMT_YUV420P;
    AVBufferPoolPtr m_picturePool;
    int m_pictureSize = 0;
    SwsContextPtr m_scaler;
    SwsContextPtr m_opaqueScaler; // for pictures without alpha, made when the first comes
    AVPacketPtr m_packet;
    int64_t m_lastKeyFramePts = AV_NOPTS_VALUE;
};
