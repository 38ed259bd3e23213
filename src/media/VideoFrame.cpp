#include "media/VideoFrame.h"

#include <cstring>

#include "media/FFmpegHandles.h"

namespace {
// Rows aligned for the SIMD paths of the colour conversion.
constexpr int rowAlignment = 64;

int alignedStride(int width) {
    return (width * 4 + rowAlignment - 1) / rowAlignment * rowAlignment;
}

std::shared_ptr<AVFrame> share(AVFrame* frame) {
    return std::shared_ptr<AVFrame>(frame, [](AVFrame* f) { av_frame_free(&f); });
}
} // namespace

VideoFrame VideoFrame::adopt(AVFrame* frame, MediaTime presentationTime, MediaTime duration) {
    VideoFrame result;
    if (!frame)
        return result;
    result.m_frame = share(frame);
    result.presentationTime = presentationTime;
    result.duration = duration;
    return result;
}

VideoFrame VideoFrame::allocate(int width, int height, MediaTime presentationTime,
                                MediaTime duration, Alpha alpha) {
    AVFramePtr frame(av_frame_alloc());
    if (!frame || width <= 0 || height <= 0)
        return {};
    frame->format = alpha == Alpha::meaningful ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR0;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), rowAlignment) < 0)
        return {};
    return adopt(frame.release(), presentationTime, duration);
}

bool VideoFrame::hasAlpha() const {
    return m_frame && m_frame->format != AV_PIX_FMT_BGR0;
}

int VideoFrame::width() const {
    return m_frame ? m_frame->width : 0;
}
int VideoFrame::height() const {
    return m_frame ? m_frame->height : 0;
}
int VideoFrame::bytesPerRow() const {
    return m_frame ? m_frame->linesize[0] : 0;
}
const uint8_t* VideoFrame::bytes() const {
    return m_frame ? m_frame->data[0] : nullptr;
}
uint8_t* VideoFrame::mutableBytes() {
    return m_frame ? m_frame->data[0] : nullptr;
}

VideoFrame VideoFrame::withTiming(MediaTime pts, MediaTime newDuration,
                                  MediaTime newDecodeTime) const {
    VideoFrame copy = *this;
    copy.presentationTime = pts;
    copy.duration = newDuration;
    copy.decodeTime = newDecodeTime;
    return copy;
}

VideoFramePool::VideoFramePool(int width, int height)
    : m_width(width), m_height(height), m_stride(alignedStride(width)) {
    if (width > 0 && height > 0)
        m_pool = av_buffer_pool_init(size_t(m_stride) * height + rowAlignment, nullptr);
}

VideoFramePool::~VideoFramePool() {
    av_buffer_pool_uninit(&m_pool);
}

VideoFrame VideoFramePool::makeFrame(MediaTime presentationTime, MediaTime duration) {
    if (!m_pool)
        return {};
    AVFramePtr frame(av_frame_alloc());
    if (!frame)
        return {};
    frame->buf[0] = av_buffer_pool_get(m_pool);
    if (!frame->buf[0])
        return {};
    frame->format = AV_PIX_FMT_BGRA;
    frame->width = m_width;
    frame->height = m_height;
    frame->data[0] = frame->buf[0]->data;
    frame->linesize[0] = m_stride;
    return VideoFrame::adopt(frame.release(), presentationTime, duration);
}

uint32_t quickFrameChecksum(const VideoFrame& frame) {
    if (frame.isNull() || !frame.bytes())
        return 0;
    const int64_t bytesPerRow = frame.bytesPerRow();
    const int64_t stepX = frame.width() / 5;
    const int64_t stepY = frame.height() / 5;
    const int64_t limit = int64_t(frame.height()) * bytesPerRow - 4;
    uint32_t checksum = 0;
    for (int64_t row = 1; row <= 4; ++row) {
        for (int64_t col = 1; col <= 4; ++col) {
            const int64_t offset = row * stepY * bytesPerRow + col * stepX * 4;
            if (offset >= limit)
                continue;
            uint32_t word = 0;
            std::memcpy(&word, frame.bytes() + offset, sizeof word);
            checksum += word;
            checksum = (checksum << 5) | (checksum >> 27);
        }
    }
    return checksum;
}
