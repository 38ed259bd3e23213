#pragma once

#include "core/time/MediaTime.h"

#include <chrono>
#include <cstdint>
#include <memory>

struct AVFrame;

// How a captured frame relates to the screen: only complete frames carry new content.
enum class FrameStatus { complete, idle, blank, suspended, started, stopped };

// A BGRA picture with its timing: a reference-counted AVFrame shared by every copy, so passing
// a frame between threads or giving it new timing never copies pixels. The pixels are written
// only by whoever made the frame, before it is first shared; after that they are read-only.
// Thread-safe for reading; the timing fields are per copy.
class VideoFrame final {
public:
    VideoFrame() = default;
    // Takes ownership of a BGRA or BGR0 AVFrame (its data must be reference-counted buffers).
    static VideoFrame adopt(AVFrame* frame, MediaTime presentationTime, MediaTime duration);
    // Whether the fourth byte of each pixel is alpha. Screen grabs leave it as the server's
    // padding (BGRX); whoever needs alpha treats such a picture as opaque.
    enum class Alpha { meaningful, undefined };
    // A frame with a fresh buffer of its own, for tests and one-off pictures.
    static VideoFrame allocate(int width, int height, MediaTime presentationTime,
                               MediaTime duration, Alpha alpha = Alpha::meaningful);

    bool isNull() const { return !m_frame; }
    bool hasAlpha() const;
    int width() const;
    int height() const;
    int bytesPerRow() const;
    const uint8_t* bytes() const;
    uint8_t* mutableBytes();
    const AVFrame* avFrame() const { return m_frame.get(); }

    // The same pixels with other timing.
    VideoFrame withTiming(MediaTime presentationTime, MediaTime duration,
                          MediaTime decodeTime) const;

    MediaTime presentationTime = MediaTime::invalid();
    MediaTime duration = MediaTime::invalid();
    MediaTime decodeTime = MediaTime::invalid();
    FrameStatus status = FrameStatus::complete;
    double contentScale = 1.0;

private:
    std::shared_ptr<AVFrame> m_frame;
};

// A cheap change detector, not a hash: 16 words on a 4 x 4 grid away from the edges, summed
// with wrap-around and rotated, so a fixed-rate pump can test every tick without copying the
// picture. 0 for a null frame and for an all-black picture.
uint32_t quickFrameChecksum(const VideoFrame& frame);

// Recycles BGRA frame buffers of one size, so capture at 60 frames/s allocates nothing once
// warm. Thread-safe: frames may be taken on one thread and released on any, and may outlive the
// pool. Buffers left idle through a whole `idleWindow` are given back (IdleBufferTrim).
class VideoFramePool final {
public:
    VideoFramePool(int width, int height,
                   std::chrono::milliseconds idleWindow = std::chrono::seconds(2));
    ~VideoFramePool();
    VideoFramePool(const VideoFramePool&) = delete;
    VideoFramePool& operator=(const VideoFramePool&) = delete;

    // A frame whose pixels are undefined until written; null when memory is exhausted.
    VideoFrame makeFrame(MediaTime presentationTime, MediaTime duration);
    int width() const { return m_width; }
    int height() const { return m_height; }
    // Buffers the pool holds, lent out or idle.
    std::size_t heldBuffers() const;

    struct Shelf; // idle buffers, shared with the buffers lent out

private:
    int m_width;
    int m_height;
    int m_stride;
    std::shared_ptr<Shelf> m_shelf;
};
