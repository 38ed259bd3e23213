#pragma once

#include "media/VideoFrame.h"
#include "platform/wayland/PipeWireBufferLender.h"
#include "platform/wayland/PipeWireHandles.h"

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>

#include <spa/param/video/raw.h>
#include <spa/utils/hook.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

// Consumes one PipeWire video node (a screen cast stream) and turns its buffers into BGRA
// frames stamped with the host clock. A whole picture in shared memory is lent as the frame
// itself, without a copy: the buffer goes back to the producer when the last copy of the frame
// is released, and at most a few are lent at a time so the producer always has buffers to fill;
// beyond that, and for crops, scaling and DMA-BUF, the picture is copied. Negotiates BGRx or BGRA
// in shared memory, or DMA-BUF with the linear modifier where the producer insists, mapped for
// reading. A buffer without damage, marked corrupt or empty is idle: nothing new to show, so
// nothing is handed on, as a still X11 screen sends nothing. The cursor comes from the stream's
// cursor metadata: its position always, its picture drawn into frames when asked for. Thread: made,
// started and stopped on one thread (the main thread); the handlers run on the stream's PipeWire
// thread loop, which is the capture thread, and must not block; the closing frame comes from the
// stopping thread while the loop is held still.
class PipeWireVideoStream final {
public:
    struct Options {
        int remoteFd = -1;   // the portal's PipeWire remote (taken over); -1: the default daemon
        uint32_t nodeID = 0; // the node to consume
        std::optional<QRect> crop; // pixels of the source picture to keep; all of it when absent
        std::optional<QSize> outputSize; // scaled to this when given, else the crop's size
        bool showsCursor = false;
        int frameRate = 60; // at most this many frames a second are handed on
        // When false, pictures are only kept until beginDelivery(): a stream connected ahead
        // of time starts with a picture at once.
        bool delivering = true;
    };
    using FrameHandler = std::function<void(VideoFrame frame)>;
    using ErrorHandler = std::function<void(const QString& description)>;

    PipeWireVideoStream(Options options, FrameHandler onFrame, ErrorHandler onError);
    ~PipeWireVideoStream();
    PipeWireVideoStream(const PipeWireVideoStream&) = delete;
    PipeWireVideoStream& operator=(const PipeWireVideoStream&) = delete;

    // Connects and asks for the node. Throws std::runtime_error when PipeWire cannot be reached.
    void start();
    // Waits until a format is agreed or the stream failed; the agreed source size, or absent.
    std::optional<QSize> waitForFormat(std::chrono::milliseconds timeout);
    // Waits until a first picture has arrived (held back until delivery begins), or the
    // stream failed; whether there is one.
    bool waitForPicture(std::chrono::milliseconds timeout);
    // Starts handing frames on; the newest picture already received goes first, stamped now
    // (the screen has shown it since). Thread: the owner's.
    void beginDelivery();
    // Disconnects. With `closingFrame`, a stream that went idle since its last frame first hands
    // on that picture once more, stamped now, so the recording lasts until the stop.
    void stop(bool closingFrame);

    // Where the producer last put the pointer, in pixels of the source picture; absent until the
    // producer attaches cursor metadata. Thread-safe.
    std::optional<QPoint> cursorPosition() const;
    int64_t deliveredFrameCount() const { return m_delivered.load(); }
    int64_t idleFrameCount() const { return m_idle.load(); }
    // Pictures handed on as the producer's own buffer, without a copy.
    int64_t lentFrameCount() const { return m_lender.lentCount(); }

private:
    struct CursorPicture {
        QPoint hotspot;
        QSize size;
        std::vector<uint8_t> bgra; // premultiplied alpha is not assumed: straight alpha
    };

    static void onStateChanged(void* data, pw_stream_state old, pw_stream_state state,
                               const char* error);
    static void onParamChanged(void* data, uint32_t id, const spa_pod* param);
    static void onProcess(void* data);
    static void onAddBuffer(void* data, pw_buffer* buffer);
    static void onRemoveBuffer(void* data, pw_buffer* buffer);
    static void onGlobalRemoved(void* data, uint32_t id);
    static void onCoreError(void* data, uint32_t id, int seq, int res, const char* message);
    // Waits with the loop's lock until `done` holds (checked under it) or the stream failed.
    bool waitUntil(std::chrono::milliseconds timeout, const std::function<bool()>& done);
    void handleFormat(const spa_pod* param);
    // Whether the buffer was lent out as a frame (it then goes back when the frame does).
    bool handleBuffer(pw_buffer* buffer);
    // Reads the cursor metadata; true when what would be drawn changed.
    bool readCursor(spa_buffer* buffer);
    // Copies the source picture (cropped, scaled, opaque) into a new frame; null on failure.
    VideoFrame copyPicture(const uint8_t* pixels, int stride);
    // The buffer's whole picture as a frame that shares its memory; null when it cannot be lent
    // (not a mapped shared-memory picture of the output's size, or enough are lent already).
    VideoFrame lendPicture(pw_buffer* buffer, int stride);
    // Gives the producer back the buffers whose frames were released since the last time.
    void requeueReturned();
    void deliver(const VideoFrame& picture, MediaTime now);
    void fail(const QString& description);

    Options m_options;
    FrameHandler m_onFrame;
    ErrorHandler m_onError;

    PipeWireThreadLoop m_loop;
    PipeWireContext m_context;
    PipeWireCore m_core;
    PipeWireRegistry m_registry; // tells when the node goes away
    PipeWireStream m_stream;
    spa_hook m_streamListener{};
    spa_hook m_coreListener{};
    spa_hook m_registryListener{};

    // Written on the capture thread with the loop's lock held; read under the same lock.
    std::optional<spa_video_info_raw> m_format;
    bool m_dmabuf = false;
    bool m_streaming = false;
    bool m_stopping = false;
    bool m_delivering = true;
    std::atomic<bool> m_failed{false};

    PipeWireBufferLender m_lender; // the capture thread's, but for frames' release

    // The capture thread's own.
    std::unique_ptr<VideoFramePool> m_pool;

    VideoFrame m_lastPicture; // without the cursor
    bool m_lastPictureLent = false;
    std::optional<CursorPicture> m_cursorPicture;
    QPoint m_drawnCursorPosition{-1, -1};
    bool m_cursorVisible = false;
    bool m_idleSinceLastFrame = false;
    std::optional<MediaTime> m_lastDelivery;

    std::atomic<bool> m_hasCursorPosition{false};
    std::atomic<int32_t> m_cursorX{0};
    std::atomic<int32_t> m_cursorY{0};
    std::atomic<int64_t> m_delivered{0};
    std::atomic<int64_t> m_idle{0};
};
