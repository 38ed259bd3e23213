#include "platform/x11/X11FrameBuilder.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11CursorImage.h"
#include "platform/x11/X11FramePixels.h"

#include <cstring>

X11FrameBuilder::X11FrameBuilder(const X11Connection& connection, const X11CaptureStream& stream)
    : m_connection(connection), m_stream(stream), m_tracker(connection, stream.windows) {
    m_tracker.start();
    if (stream.composesWindows) {
        m_compositor.emplace(connection, m_tracker, stream.source, stream.backgroundRGB,
                             stream.followsWindow);
    } else {
        m_grabber.emplace(connection.get(), connection.root(), stream.source);
        m_damage.emplace(connection.get(), connection.root());
    }
    m_pool = std::make_unique<VideoFramePool>(stream.size.width, stream.size.height);
    m_grabsIntoFrames = m_grabber && stream.size.width == stream.source.width &&
                        stream.size.height == stream.source.height;
}

void X11FrameBuilder::readEvents(bool queuedOnly) {
    xcb_connection_t* c = m_connection.get();
    while (
        const X11Event event{queuedOnly ? xcb_poll_for_queued_event(c) : xcb_poll_for_event(c)}) {
        m_tracker.handle(event.get());
        if (m_damage)
            m_damage->handle(event.get(), m_stream.source);
        if (m_compositor)
            m_compositor->handle(event.get());
    }
    m_tracker.update();
}

bool X11FrameBuilder::takeChange() {
    return m_repaint || (m_compositor ? m_compositor->takeDamage()
                                      : !m_damage->available() || m_damage->takeDamage());
}

X11FrameBuilder::Built X11FrameBuilder::build(MediaTime duration,
                                              std::optional<SCStreamConfiguration> size,
                                              const X11CursorImage& cursor) {
    Built built;
    VideoFrame& frame = built.frame;
    if (m_grabsIntoFrames) {
        frame = m_grabber->grabFrame(MediaTime::hostTimeNow(), duration);
        if (m_grabber->sharedMemoryLost()) {
            built.sharedMemoryLost = true;
            return built;
        }
    }
    const bool grabbedIntoFrame = !frame.isNull();
    if (!grabbedIntoFrame) {
        // Off screen for now, or the connection broke (reported at the next tick).
        if (m_grabber && !m_grabber->grab()) {
            built.sharedMemoryLost = m_grabber->sharedMemoryLost();
            return built;
        }
        if (size && (size->width != m_pool->width() || size->height != m_pool->height()))
            m_pool = std::make_unique<VideoFramePool>(size->width, size->height);
        frame = m_pool->makeFrame(MediaTime::hostTimeNow(), duration);
        if (frame.isNull())
            return built;
    }
    if (m_compositor) {
        built.missingWindow = m_compositor->compose(frame.mutableBytes(), frame.bytesPerRow(),
                                                    frame.width(), frame.height());
        if (built.missingWindow) {
            frame = {};
            return built;
        }
        frame.contentScale = m_compositor->contentScale();
    } else {
        if (!grabbedIntoFrame)
            X11FramePixels::copyOpaque(m_grabber->pixels(), m_grabber->bytesPerRow(),
                                       m_stream.source.width, m_stream.source.height,
                                       frame.mutableBytes(), frame.bytesPerRow(), frame.width(),
                                       frame.height());
        paintOutWindows(frame);
    }
    if (cursor) {
        // A followed window is the picture wherever it is now, at the scale it was fitted.
        X11Rect origin = m_stream.source;
        double scaleX = double(m_stream.size.width) / m_stream.source.width;
        double scaleY = double(m_stream.size.height) / m_stream.source.height;
        if (const auto followed = m_compositor && m_compositor->followsWindow()
                                      ? m_compositor->followedFrame()
                                      : std::nullopt) {
            origin = *followed;
            scaleX = scaleY = m_compositor->contentScale();
        }
        cursor.blendInto(frame.mutableBytes(), frame.bytesPerRow(), frame.width(), frame.height(),
                         origin, scaleX, scaleY);
    }
    return built;
}

void X11FrameBuilder::paintOutWindows(VideoFrame& frame) {
    // Where the excluded windows were when the screen was grabbed: the grab's reply came after
    // every event sent before it. A window that moved since the last frame is painted out over
    // all the places it passed, so none of it shows on the way.
    readEvents(true);
    if (m_tracker.takeWallpaperChange())
        m_under.clear();
    const X11Rect& source = m_stream.source;
    auto paintOut = [&](const X11Rect& place) {
        if (m_under.empty())
            readPictureUnderWindows();
        X11FramePixels::paintOver(m_under.data(), source.width, source.height, place.x - source.x,
                                  place.y - source.y, place.width, place.height,
                                  frame.mutableBytes(), frame.bytesPerRow(), frame.width(),
                                  frame.height());
    };
    for (const X11WindowTracker::Window& window : m_tracker.windows())
        if (window.shown)
            paintOut(window.swept);
    for (const X11Rect& place : m_tracker.vanished())
        paintOut(place);
    m_repaint = m_tracker.takeSweep();
}

void X11FrameBuilder::readPictureUnderWindows() {
    const X11Rect& source = m_stream.source;
    // Without a wallpaper the colour stays.
    m_under.assign(size_t(source.width) * size_t(source.height),
                   0xff000000u | m_stream.backgroundRGB.value_or(0));
    if (const auto image = m_connection.wallpaper(source))
        std::memcpy(m_under.data(), xcb_get_image_data(image.get()), m_under.size() * 4);
}
