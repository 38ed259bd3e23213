#pragma once

// The one place where FFmpeg's C headers enter the code: every FFmpeg handle is held by a
// std::unique_ptr alias below, so each one is released exactly once on every path.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <libavutil/hwcontext.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

namespace ffmpeg_detail {
// For the free functions that take the handle itself.
template <auto Free>
struct FreeHandle {
    template <typename T>
    void operator()(T* handle) const {
        Free(handle);
    }
};
// For the free functions that take the address of the handle and null it.
template <auto Free>
struct FreeHandleAddress {
    template <typename T>
    void operator()(T* handle) const {
        Free(&handle);
    }
};
// An AVIOContext made by avio_alloc_context owns neither its buffer nor its opaque pointer.
struct FreeIOContext {
    void operator()(AVIOContext* context) const {
        av_freep(&context->buffer);
        avio_context_free(&context);
    }
};
} // namespace ffmpeg_detail

using AVFramePtr = std::unique_ptr<AVFrame, ffmpeg_detail::FreeHandleAddress<av_frame_free>>;
using AVPacketPtr = std::unique_ptr<AVPacket, ffmpeg_detail::FreeHandleAddress<av_packet_free>>;
using AVCodecContextPtr =
    std::unique_ptr<AVCodecContext, ffmpeg_detail::FreeHandleAddress<avcodec_free_context>>;
using AVOutputFormatContextPtr =
    std::unique_ptr<AVFormatContext, ffmpeg_detail::FreeHandle<avformat_free_context>>;
using AVInputFormatContextPtr =
    std::unique_ptr<AVFormatContext, ffmpeg_detail::FreeHandleAddress<avformat_close_input>>;
using AVIOContextPtr = std::unique_ptr<AVIOContext, ffmpeg_detail::FreeIOContext>;
using AVBufferRefPtr =
    std::unique_ptr<AVBufferRef, ffmpeg_detail::FreeHandleAddress<av_buffer_unref>>;
using AVBufferPoolPtr =
    std::unique_ptr<AVBufferPool, ffmpeg_detail::FreeHandleAddress<av_buffer_pool_uninit>>;
using AVAudioFifoPtr = std::unique_ptr<AVAudioFifo, ffmpeg_detail::FreeHandle<av_audio_fifo_free>>;
using SwrContextPtr = std::unique_ptr<SwrContext, ffmpeg_detail::FreeHandleAddress<swr_free>>;
using SwsContextPtr = std::unique_ptr<SwsContext, ffmpeg_detail::FreeHandle<sws_freeContext>>;

// FFmpeg's text for an error code ("No space left on device", "Invalid argument").
inline std::string ffmpegErrorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}
