#pragma once

#include "media/VideoFrame.h"
#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11Handles.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

// Reads a rectangle of the root window, 32 bits per pixel (BGRX), through a shared memory
// segment when the server accepts one, else through a plain GetImage (a copy over the socket).
// Used by one thread at a time.
class X11RootGrabber final {
public:
    // Frame buffers idle through a whole `idleWindow` are given back to the system.
    X11RootGrabber(xcb_connection_t* connection, xcb_window_t root, X11Rect source,
                   std::chrono::milliseconds idleWindow = std::chrono::seconds(2));
    ~X11RootGrabber();
    X11RootGrabber(const X11RootGrabber&) = delete;
    X11RootGrabber& operator=(const X11RootGrabber&) = delete;

    bool usesSharedMemory() const { return m_shared.has_value(); }
    // The server no longer knows a segment it was writing into (it dropped it, or another
    // client detached it): nothing more comes through shared memory. Latched; a new grabber
    // may try again.
    bool sharedMemoryLost() const { return m_sharedMemoryLost; }
    // Grabs the source now; the pixels stay valid until the next grab. False when the server
    // refused (the rectangle left the screen, the connection broke).
    bool grab();
    // Grabs the source now straight into a frame of its own size, whose buffer the server
    // writes through shared memory: no copy on this side. The fourth byte of each pixel is the
    // server's padding (the frame says it has no alpha). A null frame when shared memory is not
    // available, all its buffers are still held downstream, or the server refused; then
    // `grab` and a copy are the way.
    VideoFrame grabFrame(MediaTime presentationTime, MediaTime duration);
    const uint8_t* pixels() const { return m_pixels; }
    int bytesPerRow() const { return m_source.width * 4; }
    const X11Rect& source() const { return m_source; }

    // How many frame buffers the server may write into; each is made when first needed.
    static constexpr int maxFrameSegments = 16;
    // The frame buffers there are now, lent out or free.
    size_t frameSegmentCount() const;

    struct FrameSegments; // defined where used

private:
    struct SharedSegment {
        // Declared first so it goes last: the server detaches before this side unmaps.
        SharedMemoryMapping memory;
        X11ShmSegment attachment;
    };
    bool attachSharedMemory();
    // A new shared memory segment attached to the server; nothing when the server refuses
    // (it runs on another machine) or memory is short.
    std::optional<SharedSegment> attachSegment(size_t size);
    // Notes a failed shared memory grab whose error says the segment is gone.
    void noteSharedMemoryError(const xcb_generic_error_t* error);

    xcb_connection_t* m_connection;
    xcb_window_t m_root;
    X11Rect m_source;
    std::optional<SharedSegment> m_shared; // what `grab` reads into
    const uint8_t* m_pixels = nullptr;
    uint8_t m_shmFirstError = 0; // the extension's first error code, BadShmSeg
    bool m_sharedMemoryLost = false;
    X11Reply<xcb_get_image_reply_t> m_reply; // the fallback's last image
    // The frame buffers' memory, shared with the frames lent out, which may outlive the
    // grabber; the server's attachments of the same segments, index for index, are the
    // grabber's alone.
    std::shared_ptr<FrameSegments> m_frameSegments;
    std::vector<X11ShmSegment> m_frameAttachments; // empty where a segment was given back
    std::chrono::milliseconds m_idleWindow;
};
