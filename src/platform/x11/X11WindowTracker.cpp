#include "platform/x11/X11WindowTracker.h"

#include "platform/x11/X11CaptureFilter.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Handles.h"
#include "platform/x11/X11ShareableContent.h"

#include <algorithm>
#include <string>

namespace {

template <typename T>
bool contains(const std::vector<T>& list, const T& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::string propertyBytes(xcb_connection_t* c, xcb_get_property_cookie_t cookie) {
    X11Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(c, cookie, nullptr));
    if (!reply)
        return {};
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       size_t(xcb_get_property_value_length(reply.get())));
}

X11Rect boundingBox(const X11Rect& a, const X11Rect& b) {
    const int left = std::min(a.x, b.x);
    const int top = std::min(a.y, b.y);
    return X11Rect{left, top, std::max(a.x + a.width, b.x + b.width) - left,
                   std::max(a.y + a.height, b.y + b.height) - top};
}

} // namespace

bool X11WindowSelection::matches(xcb_window_t client, const QString& owner,
                                 const QString& title) const {
    if (contains(windows, client))
        return true;
    if (X11ContentFilter::isOwnWindowKeptOut(owner, title))
        return ownWindows;
    return !owner.isEmpty() && contains(applications, owner);
}

X11WindowTracker::X11WindowTracker(const X11Connection& connection, X11WindowSelection selection)
    : m_connection(connection), m_selection(std::move(selection)) {
    m_stackingAtom = connection.atom("_NET_CLIENT_LIST_STACKING");
    m_listAtom = connection.atom("_NET_CLIENT_LIST");
    m_wallpaperAtom = connection.atom("_XROOTPMAP_ID");
    m_utf8Atom = connection.atom("UTF8_STRING");
    m_netNameAtom = connection.atom("_NET_WM_NAME");
    m_gtkIDAtom = connection.atom("_GTK_APPLICATION_ID");
    m_kdeDesktopFileAtom = connection.atom("_KDE_NET_WM_DESKTOP_FILE");
}

X11WindowTracker::~X11WindowTracker() {
    if (!m_started || m_connection.hasError())
        return;
    // Event masks belong to the connection: give the root back the one it had.
    xcb_change_window_attributes(m_connection.get(), m_connection.root(), XCB_CW_EVENT_MASK,
                                 &m_previousRootMask);
    xcb_flush(m_connection.get());
}

void X11WindowTracker::start() {
    xcb_connection_t* c = m_connection.get();
    X11Reply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        c, xcb_get_window_attributes(c, m_connection.root()), nullptr));
    m_previousRootMask = attributes ? attributes->your_event_mask : 0;
    const uint32_t mask =
        m_previousRootMask | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    // Selected before the list is read, so no change between the two goes unnoticed.
    xcb_change_window_attributes(c, m_connection.root(), XCB_CW_EVENT_MASK, &mask);
    m_started = true;
    refresh();
}

X11WindowTracker::Window* X11WindowTracker::byToplevel(xcb_window_t toplevel) {
    for (Window& window : m_windows)
        if (window.toplevel == toplevel)
            return &window;
    return nullptr;
}

void X11WindowTracker::handle(const xcb_generic_event_t* event) {
    switch (event->response_type & 0x7f) {
    case XCB_CONFIGURE_NOTIFY: {
        const auto* configure = reinterpret_cast<const xcb_configure_notify_event_t*>(event);
        if (Window* window = byToplevel(configure->window)) {
            const int border = 2 * configure->border_width;
            window->frame = X11Rect{configure->x, configure->y, configure->width + border,
                                    configure->height + border};
            window->swept = boundingBox(window->swept, window->frame);
            m_changed = true;
        }
        break;
    }
    case XCB_MAP_NOTIFY:
        if (Window* window =
                byToplevel(reinterpret_cast<const xcb_map_notify_event_t*>(event)->window)) {
            window->viewable = true;
            window->shown = true;
            m_changed = true;
        } else {
            // Perhaps a window just managed, should the list have changed before the map.
            m_listChanged = true;
        }
        break;
    case XCB_UNMAP_NOTIFY:
        if (Window* window =
                byToplevel(reinterpret_cast<const xcb_unmap_notify_event_t*>(event)->window)) {
            window->viewable = false;
            m_changed = true;
        }
        break;
    case XCB_DESTROY_NOTIFY: {
        const xcb_window_t destroyed =
            reinterpret_cast<const xcb_destroy_notify_event_t*>(event)->window;
        if (Window* window = byToplevel(destroyed)) {
            if (contains(m_selection.windows, window->client) && !m_missing)
                m_missing = window->client;
            forget(*window);
            m_windows.erase(m_windows.begin() + (window - m_windows.data()));
            ++m_generation;
            m_changed = true;
        }
        break;
    }
    case XCB_PROPERTY_NOTIFY: {
        const auto* property = reinterpret_cast<const xcb_property_notify_event_t*>(event);
        if (property->window != m_connection.root())
            break;
        if (property->atom == m_stackingAtom || property->atom == m_listAtom)
            m_listChanged = true;
        else if (property->atom == m_wallpaperAtom)
            m_wallpaperChanged = true;
        break;
    }
    default:
        break;
    }
}

void X11WindowTracker::update() {
    if (m_listChanged)
        refresh();
}

bool X11WindowTracker::takeChange() {
    return std::exchange(m_changed, false);
}

bool X11WindowTracker::takeWallpaperChange() {
    return std::exchange(m_wallpaperChanged, false);
}

void X11WindowTracker::forget(const Window& window) {
    if (window.shown)
        m_vanished.push_back(window.swept);
}

bool X11WindowTracker::takeSweep() {
    bool moved = !m_vanished.empty();
    m_vanished.clear();
    for (Window& window : m_windows) {
        moved = moved || window.swept != window.frame;
        window.swept = window.frame;
        window.shown = window.viewable;
    }
    return moved;
}

std::vector<xcb_window_t> X11WindowTracker::readClientList() const {
    for (const xcb_atom_t atom : {m_stackingAtom, m_listAtom})
        if (auto windows = m_connection.rootWindowList(atom); !windows.empty())
            return windows;
    return {};
}

void X11WindowTracker::refresh() {
    m_listChanged = false;
    const std::vector<xcb_window_t> listed = readClientList();

    // A window named by id that the window manager no longer lists has closed.
    for (xcb_window_t client : m_selection.windows)
        if (!contains(listed, client) && !m_missing)
            m_missing = client;
    std::erase_if(m_ignored, [&](xcb_window_t client) { return !contains(listed, client); });

    std::vector<xcb_window_t> fresh;
    for (xcb_window_t client : listed) {
        const bool known = contains(m_ignored, client) ||
                           std::any_of(m_windows.begin(), m_windows.end(),
                                       [&](const Window& w) { return w.client == client; });
        if (!known)
            fresh.push_back(client);
    }
    std::vector<Window> found;
    if (!fresh.empty())
        discover(fresh, found);

    // The new order is the list's; windows the list no longer holds are dropped.
    for (const Window& window : m_windows)
        if (!contains(listed, window.client))
            forget(window);
    std::vector<Window> ordered;
    for (xcb_window_t client : listed) {
        auto it = std::find_if(m_windows.begin(), m_windows.end(),
                               [&](const Window& w) { return w.client == client; });
        if (it != m_windows.end()) {
            ordered.push_back(*it);
            continue;
        }
        it = std::find_if(found.begin(), found.end(),
                          [&](const Window& w) { return w.client == client; });
        if (it != found.end())
            ordered.push_back(*it);
    }
    const bool sameSet = ordered.size() == m_windows.size() &&
                         std::all_of(ordered.begin(), ordered.end(), [&](const Window& w) {
                             return byToplevel(w.toplevel) != nullptr;
                         });
    const bool sameOrder = sameSet && std::equal(ordered.begin(), ordered.end(), m_windows.begin(),
                                                 [](const Window& a, const Window& b) {
                                                     return a.client == b.client;
                                                 });
    if (!sameSet)
        ++m_generation;
    if (!sameOrder)
        m_changed = true;
    m_windows = std::move(ordered);
}

void X11WindowTracker::discover(const std::vector<xcb_window_t>& clients,
                                std::vector<Window>& found) {
    xcb_connection_t* c = m_connection.get();
    // Every question of one step is sent before the first answer is awaited, so a dozen new
    // windows cost a few round trips, not dozens.
    std::vector<xcb_window_t> chosen;
    if (!m_selection.needsOwners()) {
        for (xcb_window_t client : clients)
            (contains(m_selection.windows, client) ? chosen : m_ignored).push_back(client);
    } else {
        struct Questions {
            xcb_get_property_cookie_t wmClass, gtk, kde, netName, wmName;
        };
        std::vector<Questions> questions;
        for (xcb_window_t client : clients)
            questions.push_back(
                {xcb_get_property(c, 0, client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256),
                 xcb_get_property(c, 0, client, m_gtkIDAtom, m_utf8Atom, 0, 256),
                 xcb_get_property(c, 0, client, m_kdeDesktopFileAtom, m_utf8Atom, 0, 256),
                 xcb_get_property(c, 0, client, m_netNameAtom, m_utf8Atom, 0, 256),
                 xcb_get_property(c, 0, client, XCB_ATOM_WM_NAME, XCB_ATOM_ANY, 0, 256)});
        for (size_t i = 0; i < clients.size(); ++i) {
            const std::string wmClass = propertyBytes(c, questions[i].wmClass);
            std::string desktopFile = propertyBytes(c, questions[i].gtk);
            const std::string kde = propertyBytes(c, questions[i].kde);
            if (desktopFile.empty())
                desktopFile = kde;
            std::string title = propertyBytes(c, questions[i].netName);
            const std::string plainTitle = propertyBytes(c, questions[i].wmName);
            if (title.empty())
                title = plainTitle;
            // The same naming as the shareable content, so ids given by the user match.
            QString owner;
            if (!wmClass.empty() || !desktopFile.empty())
                owner =
                    X11ShareableContent::applicationFor(wmClass, desktopFile, 0).bundleIdentifier;
            const bool wanted = m_selection.matches(
                clients[i], owner, QString::fromUtf8(title.data(), qsizetype(title.size())));
            (wanted ? chosen : m_ignored).push_back(clients[i]);
        }
    }
    if (chosen.empty())
        return;

    // Window managers reparent clients into frames; the frame is the root's child.
    std::vector<xcb_window_t> toplevels = chosen;
    std::vector<bool> settled(chosen.size(), false);
    for (int depth = 0; depth < 16; ++depth) {
        std::vector<xcb_query_tree_cookie_t> trees(chosen.size());
        for (size_t i = 0; i < chosen.size(); ++i)
            if (!settled[i])
                trees[i] = xcb_query_tree(c, toplevels[i]);
        bool allSettled = true;
        for (size_t i = 0; i < chosen.size(); ++i) {
            if (settled[i])
                continue;
            X11Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, trees[i], nullptr));
            if (!tree || tree->parent == tree->root || tree->parent == XCB_NONE) {
                settled[i] = true;
                continue;
            }
            toplevels[i] = tree->parent;
            allSettled = false;
        }
        if (allSettled)
            break;
    }

    std::vector<xcb_get_geometry_cookie_t> geometries;
    std::vector<xcb_get_window_attributes_cookie_t> attributes;
    for (xcb_window_t toplevel : toplevels) {
        geometries.push_back(xcb_get_geometry(c, toplevel));
        attributes.push_back(xcb_get_window_attributes(c, toplevel));
    }
    for (size_t i = 0; i < chosen.size(); ++i) {
        X11Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, geometries[i], nullptr));
        X11Reply<xcb_get_window_attributes_reply_t> state(
            xcb_get_window_attributes_reply(c, attributes[i], nullptr));
        if (!geometry || !state)
            continue; // closed while being asked about; the list will drop it too
        Window window;
        window.client = chosen[i];
        window.toplevel = toplevels[i];
        window.frame =
            X11Rect{geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                    geometry->height + 2 * geometry->border_width};
        window.swept = window.frame;
        window.viewable = state->map_state == XCB_MAP_STATE_VIEWABLE;
        window.shown = window.viewable;
        found.push_back(window);
    }
}
