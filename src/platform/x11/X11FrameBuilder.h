#pragma once

#include "media/VideoFrame.h"
#include "platform/x11/X11CaptureStream.h"
#include "platform/x11/X11DamageTracker.h"
#include "platform/x11/X11RootGrabber.h"
#include "platform/x11/X11WindowCompositor.h"
#include "platform/x11/X11WindowTracker.h"

#include <memory>
#include <optional>
#include <vector>

class X11Connection;
class X11CursorImage;

// Makes the pictures of one capture run: displays and areas are grabbed from the root (with
// the windows kept out painted over), window modes are composed from the windows' own
// pictures. It also reads the connection's events for all that watch them and tells whether
// anything on the picture changed. Made, used and destroyed on the capture thread.
class X11FrameBuilder final {
public:
    struct Built {
        // Null when there is nothing to hand on this tick (the area is off screen for now).
        VideoFrame frame;
        // A window named by id that no longer exists; no frame then.
        std::optional<xcb_window_t> missingWindow;
        // The server lost the shared memory the grabs go through; no frame then.
        bool sharedMemoryLost = false;
    };

    // Asks the server for what the stream needs: a few round trips before the first frame.
    X11FrameBuilder(const X11Connection& connection, const X11CaptureStream& stream);
    X11FrameBuilder(const X11FrameBuilder&) = delete;
    X11FrameBuilder& operator=(const X11FrameBuilder&) = delete;

    // False when the stream composes windows and the server has no Composite extension.
    bool isAvailable() const { return !m_compositor || m_compositor->isAvailable(); }
    bool usesSharedMemory() const { return m_grabber && m_grabber->usesSharedMemory(); }
    // Where a window recorded by itself is now, root pixels; absent in other modes.
    std::optional<X11Rect> followedFrame() const {
        return m_compositor && m_compositor->followsWindow() ? m_compositor->followedFrame()
                                                             : std::nullopt;
    }

    // Hands every event of the connection to all that watch it. `queuedOnly` takes just what
    // came in with the last reply, without reading the socket.
    void readEvents(bool queuedOnly);
    // Whether the picture changed since the last call, by the events read so far. Without
    // XDamage every call says so.
    bool takeChange();

    // The picture now at `size` (the stream's present size; absent: as it was), the cursor
    // drawn in if given.
    Built build(MediaTime duration, std::optional<SCStreamConfiguration> size,
                const X11CursorImage& cursor);

private:
    // What lies under excluded windows across the source: the wallpaper the desktop publishes,
    // else the stream's background colour. One row after the other, source.width wide.
    void readPictureUnderWindows();
    void paintOutWindows(VideoFrame& frame);

    const X11Connection& m_connection;
    X11CaptureStream m_stream;
    // Let go of in reverse: the compositor before the tracker it draws from, the grabber last,
    // whose flush sends what the others queued.
    std::optional<X11RootGrabber> m_grabber;
    std::optional<X11DamageTracker> m_damage;
    X11WindowTracker m_tracker;
    std::optional<X11WindowCompositor> m_compositor;
    // Read when first needed and kept: a wallpaper changes rarely, and the grab must stay
    // cheap at every tick.
    std::vector<uint32_t> m_under;
    bool m_repaint = false; // an excluded window moved: its old place is shown again next
    std::unique_ptr<VideoFramePool> m_pool;
    // At full size the server writes each grab straight into the frame's own buffer.
    bool m_grabsIntoFrames = false;
};
