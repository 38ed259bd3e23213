#include "platform/x11/X11MagnifierSource.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Handles.h"

#include <xcb/composite.h>

#include <algorithm>
#include <cstring>

namespace {

std::optional<X11Rect> intersection(const X11Rect& a, const X11Rect& b) {
    const int left = std::max(a.x, b.x);
    const int top = std::max(a.y, b.y);
    const int right = std::min(a.x + a.width, b.x + b.width);
    const int bottom = std::min(a.y + a.height, b.y + b.height);
    if (right <= left || bottom <= top)
        return std::nullopt;
    return X11Rect{left, top, right - left, bottom - top};
}

// Rows of 32-bit pixels from an image reply into the picture at (x, y), opaque.
void blit(const uint8_t* source, int width, int height, QImage& image, int x, int y) {
    for (int row = 0; row < height; ++row) {
        auto* to = reinterpret_cast<uint32_t*>(image.scanLine(y + row)) + x;
        const auto* from = reinterpret_cast<const uint32_t*>(source) + size_t(row) * width;
        for (int column = 0; column < width; ++column)
            to[column] = from[column] | 0xff000000u;
    }
}

} // namespace

X11MagnifierSource::X11MagnifierSource(const X11Connection& connection, IsOwnWindow isOwn)
    : m_connection(connection), m_isOwn(std::move(isOwn)) {
    xcb_connection_t* c = m_connection.get();
    const xcb_query_extension_reply_t* composite = xcb_get_extension_data(c, &xcb_composite_id);
    if (!composite || !composite->present)
        return;
    X11Reply<xcb_composite_query_version_reply_t> version(
        xcb_composite_query_version_reply(c, xcb_composite_query_version(c, 0, 4), nullptr));
    if (!version || (version->major_version == 0 && version->minor_version < 2))
        return; // naming a window's pixmap came with 0.2
    // All top levels, those that come later too; undone when the connection closes.
    X11Error error(
        xcb_request_check(c, xcb_composite_redirect_subwindows_checked(
                                 c, m_connection.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC)));
    m_available = !error;
}

X11MagnifierSource::~X11MagnifierSource() {
    if (!m_available)
        return;
    xcb_composite_unredirect_subwindows(m_connection.get(), m_connection.root(),
                                        XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    xcb_flush(m_connection.get());
}

std::optional<QImage> X11MagnifierSource::read(const X11Rect& area) {
    if (!m_available || area.width <= 0 || area.height <= 0)
        return std::nullopt;
    QImage image(area.width, area.height, QImage::Format_RGB32);
    drawBackground(image, area);
    for (const Placed& placed : windowsAcross(area))
        drawWindow(image, area, placed);
    return image;
}

std::vector<X11MagnifierSource::Placed> X11MagnifierSource::windowsAcross(const X11Rect& area) {
    xcb_connection_t* c = m_connection.get();
    X11Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(c, xcb_query_tree(c, m_connection.root()), nullptr));
    if (!tree)
        return {};
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    // All questions first, then all answers: one round trip for the lot.
    std::vector<xcb_get_window_attributes_cookie_t> attributes(static_cast<size_t>(count));
    std::vector<xcb_get_geometry_cookie_t> geometries(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        attributes[size_t(i)] = xcb_get_window_attributes(c, children[i]);
        geometries[size_t(i)] = xcb_get_geometry(c, children[i]);
    }
    std::vector<Placed> across;
    for (int i = 0; i < count; ++i) {
        X11Reply<xcb_get_window_attributes_reply_t> attribute(
            xcb_get_window_attributes_reply(c, attributes[size_t(i)], nullptr));
        X11Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, geometries[size_t(i)], nullptr));
        if (!attribute || !geometry || attribute->map_state != XCB_MAP_STATE_VIEWABLE ||
            attribute->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT)
            continue;
        const X11Rect outer{geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                            geometry->height + 2 * geometry->border_width};
        if (intersection(outer, area))
            across.push_back({children[i], outer});
    }
    // A window manager's frame holds the client one level down.
    std::vector<xcb_query_tree_cookie_t> frames;
    for (const Placed& placed : across)
        frames.push_back(xcb_query_tree(c, placed.window));
    std::vector<Placed> shown;
    for (size_t i = 0; i < across.size(); ++i) {
        X11Reply<xcb_query_tree_reply_t> frame(xcb_query_tree_reply(c, frames[i], nullptr));
        bool own = m_isOwn(across[i].window);
        if (frame && !own) {
            const xcb_window_t* clients = xcb_query_tree_children(frame.get());
            const int clientCount = xcb_query_tree_children_length(frame.get());
            own = std::any_of(clients, clients + clientCount, m_isOwn);
        }
        if (!own)
            shown.push_back(across[i]);
    }
    return shown;
}

void X11MagnifierSource::drawBackground(QImage& image, const X11Rect& area) {
    image.fill(Qt::black);
    const X11Rect screen{0, 0, m_connection.rootWidth(), m_connection.rootHeight()};
    const std::optional<X11Rect> on = intersection(area, screen);
    if (!on)
        return;
    if (const auto wallpaper = m_connection.wallpaper(*on))
        blit(xcb_get_image_data(wallpaper.get()), on->width, on->height, image, on->x - area.x,
             on->y - area.y);
}

void X11MagnifierSource::drawWindow(QImage& image, const X11Rect& area, const Placed& placed) {
    const std::optional<X11Rect> part = intersection(area, placed.outer);
    if (!part)
        return;
    xcb_connection_t* c = m_connection.get();
    // Named anew each time: a resized window gets a new pixmap.
    const X11Pixmap pixmap(c, xcb_generate_id(c));
    xcb_composite_name_window_pixmap(c, placed.window, pixmap.id());
    X11Reply<xcb_get_image_reply_t> pixels(xcb_get_image_reply(
        c,
        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap.id(), int16_t(part->x - placed.outer.x),
                      int16_t(part->y - placed.outer.y), uint16_t(part->width),
                      uint16_t(part->height), ~0u),
        nullptr));
    // Gone or unmapped between the questions, or a depth without 32-bit pixels: left out.
    if (!pixels || xcb_get_image_data_length(pixels.get()) < part->width * part->height * 4)
        return;
    blit(xcb_get_image_data(pixels.get()), part->width, part->height, image, part->x - area.x,
         part->y - area.y);
}
