#include "platform/x11/X11WindowCompositor.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11FramePixels.h"

#include <xcb/composite.h>
#include <xcb/damage.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

template <typename Reply>
struct Freed {
    void operator()(Reply* reply) const { std::free(reply); }
};
template <typename Reply>
using ReplyPtr = std::unique_ptr<Reply, Freed<Reply>>;

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

X11WindowCompositor::X11WindowCompositor(const X11Connection& connection,
                                         std::vector<xcb_window_t> clients, X11Rect content,
                                         std::optional<uint32_t> background)
    : m_connection(connection), m_content(content), m_background(background),
      m_canvas(size_t(std::max(content.width, 0)) * size_t(std::max(content.height, 0))) {
    xcb_connection_t* c = connection.get();
    const xcb_query_extension_reply_t* composite = xcb_get_extension_data(c, &xcb_composite_id);
    if (!composite || !composite->present)
        return;
    ReplyPtr<xcb_composite_query_version_reply_t> version(
        xcb_composite_query_version_reply(c, xcb_composite_query_version(c, 0, 4), nullptr));
    if (!version)
        return;
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(c, &xcb_damage_id);
    const bool hasDamage =
        damage && damage->present &&
        ReplyPtr<xcb_damage_query_version_reply_t>(xcb_damage_query_version_reply(
            c, xcb_damage_query_version(c, 1, 1), nullptr)) != nullptr;
    if (hasDamage)
        m_damageEvent = damage->first_event + XCB_DAMAGE_NOTIFY;
    for (xcb_window_t client : clients) {
        Captured captured;
        captured.client = client;
        captured.toplevel = toplevelOf(client);
        // Automatic redirection keeps the screen as it was while the window also gets an off
        // screen picture of its own, unaffected by what lies above it.
        xcb_composite_redirect_window(c, captured.toplevel, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        if (hasDamage) {
            captured.damage = xcb_generate_id(c);
            xcb_damage_create(c, captured.damage, captured.toplevel,
                              XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
        }
        m_windows.push_back(captured);
    }
    xcb_flush(c);
    m_available = true;
}

X11WindowCompositor::~X11WindowCompositor() {
    xcb_connection_t* c = m_connection.get();
    for (const Captured& captured : m_windows) {
        if (captured.damage)
            xcb_damage_destroy(c, captured.damage);
        xcb_composite_unredirect_window(c, captured.toplevel, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    }
    xcb_flush(c);
}

xcb_window_t X11WindowCompositor::toplevelOf(xcb_window_t window) const {
    xcb_connection_t* c = m_connection.get();
    // Window managers reparent clients into frames; the frame is the root's child.
    for (int depth = 0; depth < 16; ++depth) {
        ReplyPtr<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr));
        if (!tree || tree->parent == tree->root || tree->parent == XCB_NONE)
            return window;
        window = tree->parent;
    }
    return window;
}

bool X11WindowCompositor::takeDamage() {
    if (!m_damageEvent)
        return true; // without XDamage every tick is a change
    xcb_connection_t* c = m_connection.get();
    bool damaged = false;
    while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
        if ((event->response_type & 0x7f) == m_damageEvent)
            damaged = true;
        std::free(event);
    }
    if (damaged) {
        for (const Captured& captured : m_windows)
            xcb_damage_subtract(c, captured.damage, XCB_NONE, XCB_NONE);
        xcb_flush(c);
    }
    return damaged;
}

bool X11WindowCompositor::drawWallpaper(std::vector<uint32_t>& canvas) {
    xcb_connection_t* c = m_connection.get();
    // Desktop setters publish the wallpaper's pixmap on the root.
    const std::string id = m_connection.property(
        m_connection.root(), m_connection.atom("_XROOTPMAP_ID"), XCB_ATOM_PIXMAP);
    if (id.size() < sizeof(xcb_pixmap_t))
        return false;
    xcb_pixmap_t pixmap = 0;
    std::memcpy(&pixmap, id.data(), sizeof pixmap);
    ReplyPtr<xcb_get_image_reply_t> image(xcb_get_image_reply(
        c,
        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, int16_t(m_content.x),
                      int16_t(m_content.y), uint16_t(m_content.width), uint16_t(m_content.height),
                      ~0u),
        nullptr));
    if (!image || xcb_get_image_data_length(image.get()) < m_content.width * m_content.height * 4)
        return false;
    blit(xcb_get_image_data(image.get()), m_content.width, m_content.height, 0, 0, canvas,
         m_content.width, m_content.height);
    return true;
}

std::optional<xcb_window_t> X11WindowCompositor::compose(uint8_t* pixels, int stride, int width,
                                                         int height) {
    xcb_connection_t* c = m_connection.get();
    if (followsWindow()) {
        // The content is wherever the window is now, at its present size.
        ReplyPtr<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, xcb_get_geometry(c, m_windows.front().toplevel), nullptr));
        if (!geometry)
            return m_windows.front().client;
        const X11Rect now{geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                          geometry->height + 2 * geometry->border_width};
        if (now.width != m_content.width || now.height != m_content.height)
            m_canvas.assign(size_t(now.width) * size_t(now.height), 0);
        m_content = now;
    }
    if (!m_background || !drawWallpaper(m_canvas))
        X11FramePixels::fill(reinterpret_cast<uint8_t*>(m_canvas.data()), m_content.width * 4,
                             m_content.width, m_content.height, m_background.value_or(0));

    // Bottom first, as the root lists its children.
    ReplyPtr<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(c, xcb_query_tree(c, m_connection.root()), nullptr));
    if (!tree)
        return m_windows.empty() ? std::nullopt : std::optional(m_windows.front().client);
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    std::vector<const Captured*> order;
    for (int i = 0; i < count; ++i)
        for (const Captured& captured : m_windows)
            if (captured.toplevel == children[i])
                order.push_back(&captured);
    if (order.size() != m_windows.size()) {
        for (const Captured& captured : m_windows)
            if (std::find(order.begin(), order.end(), &captured) == order.end())
                return captured.client;
    }

    for (const Captured* captured : order) {
        ReplyPtr<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, xcb_get_geometry(c, captured->toplevel), nullptr));
        if (!geometry)
            return captured->client;
        const int w = geometry->width + 2 * geometry->border_width;
        const int h = geometry->height + 2 * geometry->border_width;
        ReplyPtr<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
            c, xcb_get_window_attributes(c, captured->toplevel), nullptr));
        if (!attributes)
            return captured->client;
        if (attributes->map_state != XCB_MAP_STATE_VIEWABLE)
            continue; // minimised or on another desktop: nothing to show now
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        // Named anew each time: a resized window gets a new pixmap.
        xcb_composite_name_window_pixmap(c, captured->toplevel, pixmap);
        ReplyPtr<xcb_get_image_reply_t> image(
            xcb_get_image_reply(c,
                                xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, 0, 0,
                                              uint16_t(w), uint16_t(h), ~0u),
                                nullptr));
        xcb_free_pixmap(c, pixmap);
        if (!image || xcb_get_image_data_length(image.get()) < w * h * 4)
            continue; // unmapped between the questions
        blit(xcb_get_image_data(image.get()), w, h, geometry->x - m_content.x,
             geometry->y - m_content.y, m_canvas, m_content.width, m_content.height);
    }
    if (!followsWindow()) {
        X11FramePixels::copyOpaque(reinterpret_cast<const uint8_t*>(m_canvas.data()),
                                   m_content.width * 4, m_content.width, m_content.height, pixels,
                                   stride, width, height);
        return std::nullopt;
    }
    // Fitted whole at the top left, never enlarged; the rest is the background.
    m_contentScale =
        std::min({1.0, double(width) / m_content.width, double(height) / m_content.height});
    const int fittedWidth = std::max(1, int(m_content.width * m_contentScale));
    const int fittedHeight = std::max(1, int(m_content.height * m_contentScale));
    X11FramePixels::fill(pixels, stride, width, height, m_background.value_or(0));
    X11FramePixels::copyOpaque(reinterpret_cast<const uint8_t*>(m_canvas.data()),
                               m_content.width * 4, m_content.width, m_content.height, pixels,
                               stride, std::min(fittedWidth, width),
                               std::min(fittedHeight, height));
    return std::nullopt;
}
