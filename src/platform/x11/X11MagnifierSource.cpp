#include "platform/x11/X11MagnifierSource.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Handles.h"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <iterator>
#include <set>

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
    // Naming a window's pixmap came with 0.2.
    m_available = version && (version->major_version > 0 || version->minor_version >= 2);
    m_wallpaperAtom = m_connection.atom("_XROOTPMAP_ID");
    // Adding damage to a drawable came with DAMAGE 1.1; regions are XFixes'.
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(c, &xcb_damage_id);
    const xcb_query_extension_reply_t* fixes = xcb_get_extension_data(c, &xcb_xfixes_id);
    if (!m_available || !damage || !damage->present || !fixes || !fixes->present)
        return;
    X11Reply<xcb_damage_query_version_reply_t> damageVersion(
        xcb_damage_query_version_reply(c, xcb_damage_query_version(c, 1, 1), nullptr));
    X11Reply<xcb_xfixes_query_version_reply_t> fixesVersion(
        xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 2, 0), nullptr));
    m_forwardsDamage = damageVersion && fixesVersion && fixesVersion->major_version >= 2 &&
                       (damageVersion->major_version > 1 || damageVersion->minor_version >= 1);
    m_damageEvent = damage->first_event;
}

X11MagnifierSource::~X11MagnifierSource() {
    // Windows gone meanwhile earn an error nobody reads.
    for (auto& [window, damage] : m_redirected) {
        damage.reset();
        xcb_composite_unredirect_window(m_connection.get(), window,
                                        XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    }
    xcb_flush(m_connection.get());
}

void X11MagnifierSource::redirect(const std::vector<Placed>& windows,
                                  const xcb_query_tree_reply_t& tree) {
    xcb_connection_t* c = m_connection.get();
    // Forget windows that went.
    const xcb_window_t* children = xcb_query_tree_children(&tree);
    const std::set<xcb_window_t> present(children,
                                         children + xcb_query_tree_children_length(&tree));
    std::erase_if(m_redirected, [&](const auto& entry) { return !present.contains(entry.first); });
    // Only other programs' windows: ours stay drawn straight to the screen, so that what
    // changes below them never shows through them.
    for (const Placed& placed : windows) {
        if (m_redirected.contains(placed.window))
            continue;
        X11Damage damage;
        if (m_forwardsDamage) {
            damage = X11Damage(c, xcb_generate_id(c));
            xcb_damage_create(c, damage.id(), placed.window, XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
        }
        xcb_composite_redirect_window(c, placed.window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        m_redirected.emplace(placed.window, std::move(damage));
    }
}

void X11MagnifierSource::forwardDamage() {
    if (!m_forwardsDamage)
        return;
    xcb_connection_t* c = m_connection.get();
    std::vector<xcb_rectangle_t> drawn;
    std::set<xcb_damage_damage_t> reported;
    while (const X11Event event{xcb_poll_for_event(c)}) {
        // Errors (a window gone before its unredirection) need no answer.
        if ((event->response_type & 0x7f) != m_damageEvent + XCB_DAMAGE_NOTIFY)
            continue;
        const auto* notify = reinterpret_cast<const xcb_damage_notify_event_t*>(event.get());
        // The area counts from the window, the window's place from the root.
        drawn.push_back({int16_t(notify->geometry.x + notify->area.x),
                         int16_t(notify->geometry.y + notify->area.y), notify->area.width,
                         notify->area.height});
        reported.insert(notify->damage);
    }
    for (const xcb_damage_damage_t damage : reported)
        xcb_damage_subtract(c, damage, XCB_NONE, XCB_NONE);
    if (!drawn.empty()) {
        const xcb_xfixes_region_t region = xcb_generate_id(c);
        xcb_xfixes_create_region(c, region, uint32_t(drawn.size()), drawn.data());
        xcb_damage_add(c, m_connection.root(), region);
        xcb_xfixes_destroy_region(c, region);
    }
    xcb_flush(c);
}

std::optional<QImage> X11MagnifierSource::read(const X11Rect& area) {
    if (!m_available || area.width <= 0 || area.height <= 0)
        return std::nullopt;
    forwardDamage();
    xcb_connection_t* c = m_connection.get();
    QImage image(area.width, area.height, QImage::Format_RGB32);
    image.fill(Qt::black);
    // Questions go out in rounds, each answered in one trip: the windows and the wallpaper's
    // pixmap; where the windows are; the frames' clients; the pixels of the wallpaper and of
    // the windows.
    const xcb_query_tree_cookie_t treeCookie = xcb_query_tree(c, m_connection.root());
    const xcb_get_property_cookie_t wallpaperCookie =
        xcb_get_property(c, 0, m_connection.root(), m_wallpaperAtom, XCB_ATOM_PIXMAP, 0, 1);
    X11Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, treeCookie, nullptr));
    X11Reply<xcb_get_property_reply_t> wallpaper(
        xcb_get_property_reply(c, wallpaperCookie, nullptr));
    if (!tree)
        return image;
    const std::vector<Placed> windows = windowsAcross(*tree, area);
    redirect(windows, *tree);

    // The wallpaper, unless the lowest window left covers the whole rectangle.
    const X11Rect screen{0, 0, m_connection.rootWidth(), m_connection.rootHeight()};
    const std::optional<X11Rect> onScreen = intersection(area, screen);
    const bool covered = !windows.empty() && windows.front().opaque &&
                         intersection(area, windows.front().outer) == area;
    std::optional<xcb_get_image_cookie_t> background;
    if (onScreen && !covered && wallpaper && wallpaper->format == 32 &&
        xcb_get_property_value_length(wallpaper.get()) >= 4) {
        const xcb_pixmap_t pixmap =
            *static_cast<const xcb_pixmap_t*>(xcb_get_property_value(wallpaper.get()));
        background = xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, int16_t(onScreen->x),
                                   int16_t(onScreen->y), uint16_t(onScreen->width),
                                   uint16_t(onScreen->height), ~0u);
    }
    // Each window's pixmap is named anew each time: a resized window gets a new one.
    struct Asked {
        X11Pixmap pixmap;
        X11Rect part;
        xcb_get_image_cookie_t cookie;
    };
    std::vector<Asked> asked;
    asked.reserve(windows.size());
    for (const Placed& placed : windows) {
        const std::optional<X11Rect> part = intersection(area, placed.outer);
        if (!part)
            continue;
        X11Pixmap pixmap(c, xcb_generate_id(c));
        xcb_composite_name_window_pixmap(c, placed.window, pixmap.id());
        const xcb_get_image_cookie_t cookie = xcb_get_image(
            c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap.id(), int16_t(part->x - placed.outer.x),
            int16_t(part->y - placed.outer.y), uint16_t(part->width), uint16_t(part->height), ~0u);
        asked.push_back({std::move(pixmap), *part, cookie});
    }
    if (background) {
        X11Reply<xcb_get_image_reply_t> pixels(xcb_get_image_reply(c, *background, nullptr));
        if (pixels &&
            xcb_get_image_data_length(pixels.get()) >= onScreen->width * onScreen->height * 4)
            blit(xcb_get_image_data(pixels.get()), onScreen->width, onScreen->height, image,
                 onScreen->x - area.x, onScreen->y - area.y);
    }
    // Bottom first, so that what lies above covers it.
    for (Asked& one : asked) {
        X11Reply<xcb_get_image_reply_t> pixels(xcb_get_image_reply(c, one.cookie, nullptr));
        // Gone or unmapped between the questions, or a depth without 32-bit pixels: left out.
        if (!pixels ||
            xcb_get_image_data_length(pixels.get()) < one.part.width * one.part.height * 4)
            continue;
        blit(xcb_get_image_data(pixels.get()), one.part.width, one.part.height, image,
             one.part.x - area.x, one.part.y - area.y);
    }
    return image;
}

std::vector<X11MagnifierSource::Placed>
X11MagnifierSource::windowsAcross(const xcb_query_tree_reply_t& tree, const X11Rect& area) {
    xcb_connection_t* c = m_connection.get();
    const xcb_window_t* children = xcb_query_tree_children(&tree);
    const int count = xcb_query_tree_children_length(&tree);
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
            across.push_back({children[i], outer, geometry->depth != 32});
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
    // What lies under an opaque window that covers the whole rectangle is not seen: the
    // topmost such window is where reading starts.
    const auto covering = std::find_if(shown.rbegin(), shown.rend(), [&](const Placed& placed) {
        return placed.opaque && intersection(area, placed.outer) == area;
    });
    if (covering != shown.rend())
        shown.erase(shown.begin(), std::prev(covering.base()));
    return shown;
}
