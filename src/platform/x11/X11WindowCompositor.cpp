#include "platform/x11/X11WindowCompositor.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11FramePixels.h"
#include "platform/x11/X11WindowTracker.h"

#include <xcb/composite.h>
#include <xcb/damage.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// Copies a 32-bit image into the canvas at (x, y), clipped, opaque.
void blit(const uint8_t* image, int width, int height, int x, int y, std::vector<uint32_t>& canvas,
          int canvasWidth, int canvasHeight) {
    for (int row = 0; row < height; ++row) {
        const int cy = y + row;
        if (cy < 0 || cy >= canvasHeight)
            continue;
        const auto* in = reinterpret_cast<const uint32_t*>(image + size_t(row) * size_t(width) * 4);
        uint32_t* out = canvas.data() + size_t(cy) * size_t(canvasWidth);
        for (int col = std::max(0, -x); col < width && x + col < canvasWidth; ++col)
            out[x + col] = in[col] | 0xff000000u;
    }
}

} // namespace

X11WindowCompositor::X11WindowCompositor(const X11Connection& connection, X11WindowTracker& tracker,
                                         X11Rect content, std::optional<uint32_t> background,
                                         bool followsWindow)
    : m_connection(connection), m_tracker(tracker), m_content(content), m_background(background),
      m_followsWindow(followsWindow) {
    if (!followsWindow)
        m_canvas.assign(size_t(std::max(content.width, 0)) * size_t(std::max(content.height, 0)),
                        0);
    xcb_connection_t* c = connection.get();
    const xcb_query_extension_reply_t* composite = xcb_get_extension_data(c, &xcb_composite_id);
    if (!composite || !composite->present)
        return;
    X11Reply<xcb_composite_query_version_reply_t> version(
        xcb_composite_query_version_reply(c, xcb_composite_query_version(c, 0, 4), nullptr));
    if (!version)
        return;
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(c, &xcb_damage_id);
    m_hasDamage = damage && damage->present &&
                  X11Reply<xcb_damage_query_version_reply_t>(xcb_damage_query_version_reply(
                      c, xcb_damage_query_version(c, 1, 1), nullptr)) != nullptr;
    if (m_hasDamage)
        m_damageEvent = damage->first_event + XCB_DAMAGE_NOTIFY;
    m_available = true;
}

X11WindowCompositor::~X11WindowCompositor() {
    // Released here rather than by the members' destructors, so one flush sends it all.
    for (Captured& captured : m_captured)
        release(captured);
    xcb_flush(m_connection.get());
}

void X11WindowCompositor::release(Captured& captured) {
    // A window already destroyed took both with it; the server's error is dropped unread.
    captured.damage.reset();
    xcb_composite_unredirect_window(m_connection.get(), captured.toplevel,
                                    XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    captured.toplevel = 0;
}

void X11WindowCompositor::redirectNewWindows() {
    if (m_generation == m_tracker.generation())
        return;
    m_generation = m_tracker.generation();
    xcb_connection_t* c = m_connection.get();
    const auto& windows = m_tracker.windows();
    for (Captured& captured : m_captured) {
        const bool kept = std::any_of(windows.begin(), windows.end(), [&](const auto& window) {
            return window.toplevel == captured.toplevel;
        });
        if (!kept)
            release(captured);
    }
    std::erase_if(m_captured, [](const Captured& captured) { return captured.toplevel == 0; });
    for (const X11WindowTracker::Window& window : windows) {
        if (std::any_of(m_captured.begin(), m_captured.end(),
                        [&](const Captured& c) { return c.toplevel == window.toplevel; }))
            continue;
        Captured captured;
        captured.toplevel = window.toplevel;
        // Automatic redirection keeps the screen as it was while the window also gets an off
        // screen picture of its own, unaffected by what lies above it.
        xcb_composite_redirect_window(c, captured.toplevel, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        if (m_hasDamage) {
            captured.damage = X11Damage(c, xcb_generate_id(c));
            xcb_damage_create(c, captured.damage.id(), captured.toplevel,
                              XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
        }
        m_captured.push_back(std::move(captured));
    }
    xcb_flush(c);
}

void X11WindowCompositor::handle(const xcb_generic_event_t* event) {
    if (m_damageEvent && (event->response_type & 0x7f) == m_damageEvent)
        m_damaged = true;
}

bool X11WindowCompositor::takeDamage() {
    // Moves, restacking and windows coming or going change the picture as much as drawing.
    const bool moved = m_tracker.takeChange();
    m_tracker.takeSweep(); // where windows passed matters to painting out, not here
    if (!m_hasDamage)
        return true; // without XDamage every tick is a change
    const bool damaged = std::exchange(m_damaged, false);
    if (damaged) {
        xcb_connection_t* c = m_connection.get();
        for (const Captured& captured : m_captured)
            if (captured.damage)
                xcb_damage_subtract(c, captured.damage.id(), XCB_NONE, XCB_NONE);
        xcb_flush(c);
    }
    return damaged || moved;
}

void X11WindowCompositor::drawBackground() {
    const int width = m_content.width;
    const int height = m_content.height;
    if (m_background) {
        X11FramePixels::fill(reinterpret_cast<uint8_t*>(m_canvas.data()), width * 4, width, height,
                             *m_background);
        return;
    }
    // Read once and again only when the desktop sets another: a display-sized question at
    // every frame would cost more than the windows themselves.
    if (!m_wallpaperRead || m_tracker.takeWallpaperChange()) {
        m_wallpaperRead = true;
        m_wallpaper.clear();
        if (const auto image = m_connection.wallpaper(m_content)) {
            m_wallpaper.assign(size_t(width) * size_t(height), 0);
            blit(xcb_get_image_data(image.get()), width, height, 0, 0, m_wallpaper, width, height);
        }
    }
    if (m_wallpaper.size() == m_canvas.size())
        std::memcpy(m_canvas.data(), m_wallpaper.data(), m_canvas.size() * 4);
    else
        X11FramePixels::fill(reinterpret_cast<uint8_t*>(m_canvas.data()), width * 4, width, height,
                             0);
}

namespace {

// The window's picture as it is now, at the size of its pixmap (which is named anew each
// time: a resized window gets a new one). Absent when the window is not drawable now.
X11Reply<xcb_get_image_reply_t> windowImage(xcb_connection_t* c, xcb_window_t toplevel, int& width,
                                            int& height) {
    const X11Pixmap pixmap(c, xcb_generate_id(c));
    xcb_composite_name_window_pixmap(c, toplevel, pixmap.id());
    X11Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(c, xcb_get_geometry(c, pixmap.id()), nullptr));
    X11Reply<xcb_get_image_reply_t> image;
    if (geometry) {
        width = geometry->width;
        height = geometry->height;
        image.reset(xcb_get_image_reply(c,
                                        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap.id(), 0,
                                                      0, uint16_t(width), uint16_t(height), ~0u),
                                        nullptr));
    }
    if (image && xcb_get_image_data_length(image.get()) < width * height * 4)
        image.reset();
    return image;
}

} // namespace

std::optional<xcb_window_t> X11WindowCompositor::compose(uint8_t* pixels, int stride, int width,
                                                         int height) {
    if (const auto gone = m_tracker.missing())
        return gone;
    redirectNewWindows();
    if (m_followsWindow) {
        composeFollowed(pixels, stride, width, height);
        return std::nullopt;
    }
    drawBackground();
    xcb_connection_t* c = m_connection.get();
    // Bottom first, each where the tracker saw it last.
    for (const X11WindowTracker::Window& window : m_tracker.windows()) {
        if (!window.viewable)
            continue; // minimised or on another desktop: nothing to show now
        int w = 0, h = 0;
        const auto image = windowImage(c, window.toplevel, w, h);
        if (!image)
            continue; // unmapped between the questions
        blit(xcb_get_image_data(image.get()), w, h, window.frame.x - m_content.x,
             window.frame.y - m_content.y, m_canvas, m_content.width, m_content.height);
    }
    X11FramePixels::copyOpaque(reinterpret_cast<const uint8_t*>(m_canvas.data()),
                               m_content.width * 4, m_content.width, m_content.height, pixels,
                               stride, width, height);
    return std::nullopt;
}

void X11WindowCompositor::composeFollowed(uint8_t* pixels, int stride, int width, int height) {
    X11FramePixels::fill(pixels, stride, width, height, m_background.value_or(0));
    const auto& windows = m_tracker.windows();
    if (windows.empty() || !windows.front().viewable)
        return; // minimised or on another desktop: nothing to show now
    int w = 0, h = 0;
    const auto image = windowImage(m_connection.get(), windows.front().toplevel, w, h);
    if (!image || w <= 0 || h <= 0)
        return;
    // Fitted whole at the top left, never enlarged; the rest is the background.
    m_contentScale = std::min({1.0, double(width) / w, double(height) / h});
    m_followedFrame = windows.front().frame;
    const int fittedWidth = std::max(1, int(w * m_contentScale));
    const int fittedHeight = std::max(1, int(h * m_contentScale));
    X11FramePixels::copyOpaque(xcb_get_image_data(image.get()), w * 4, w, h, pixels, stride,
                               std::min(fittedWidth, width), std::min(fittedHeight, height));
}
