#include "media/VideoFrame.h"

#include <cstring>
#include <mutex>
#include <vector>

#include "media/FFmpegHandles.h"
#include "media/IdleBufferTrim.h"

#include <sys/mman.h>

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

// Buffers are mapped pages of their own rather than heap blocks: the heap keeps large blocks it
// is given back (its threshold for mapping them rises with every such block freed), so only
// unmapping really returns a trimmed buffer's memory.
struct VideoFramePool::Shelf {
    Shelf(std::size_t bytes, std::chrono::milliseconds window) : bufferSize(bytes), trim(window) {}
    ~Shelf() {
        for (uint8_t* buffer : idle)
            munmap(buffer, bufferSize);
    }

    uint8_t* take() {
        std::lock_guard lock(mutex);
        uint8_t* buffer = nullptr;
        if (!idle.empty()) {
            buffer = idle.back();
            idle.pop_back();
        } else {
            void* mapped = mmap(nullptr, bufferSize, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (mapped == MAP_FAILED)
                return nullptr;
            buffer = static_cast<uint8_t*>(mapped);
            ++allocated;
        }
        trim.noteTaken(idle.size());
        trimIfDue();
        return buffer;
    }

    void giveBack(uint8_t* buffer) {
        std::lock_guard lock(mutex);
        // The most recently used buffer goes out first: its pages are the likeliest in cache.
        idle.push_back(buffer);
        trimIfDue();
    }

    void trimIfDue() {
        const std::size_t surplus = trim.surplus(idle.size());
        // The longest idle sit at the front.
        for (std::size_t i = 0; i < surplus; ++i)
            munmap(idle[i], bufferSize);
        idle.erase(idle.begin(), idle.begin() + std::ptrdiff_t(surplus));
        allocated -= surplus;
    }

    const std::size_t bufferSize;
    mutable std::mutex mutex;
    std::vector<uint8_t*> idle;
    std::size_t allocated = 0;
    IdleBufferTrim trim;
};

namespace {
// Each lent buffer keeps the shelf alive, so frames may outlive the pool.
void returnToShelf(void* opaque, uint8_t* data) {
    auto* shelf = static_cast<std::shared_ptr<VideoFramePool::Shelf>*>(opaque);
    (*shelf)->giveBack(data);
    delete shelf;
}
} // namespace

VideoFramePool::VideoFramePool(int width, int height, std::chrono::milliseconds idleWindow)
    : m_width(width), m_height(height), m_stride(alignedStride(width)) {
    if (width > 0 && height > 0)
        m_shelf = std::make_shared<Shelf>(size_t(m_stride) * height + rowAlignment, idleWindow);
}

VideoFramePool::~VideoFramePool() = default;

std::size_t VideoFramePool::heldBuffers() const {
    if (!m_shelf)
        return 0;
    std::lock_guard lock(m_shelf->mutex);
    return m_shelf->allocated;
}

VideoFrame VideoFramePool::makeFrame(MediaTime presentationTime, MediaTime duration) {
    if (!m_shelf)
        return {};
    AVFramePtr frame(av_frame_alloc());
    if (!frame)
        return {};
    uint8_t* buffer = m_shelf->take();
    if (!buffer)
        return {};
    auto* owner = new std::shared_ptr<Shelf>(m_shelf);
    frame->buf[0] = av_buffer_create(buffer, m_shelf->bufferSize, returnToShelf, owner, 0);
    if (!frame->buf[0]) {
        delete owner;
        m_shelf->giveBack(buffer);
        return {};
    }
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
