#include "platform/x11/X11ShareableContent.h"

#include "core/model/Constants.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11Handles.h"

#include <xcb/randr.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

std::vector<SCDisplay> fetchDisplays(const X11Connection& x) {
    std::vector<SCDisplay> displays;
    auto cookie = xcb_randr_get_monitors(x.get(), x.root(), 1);
    X11Reply<xcb_randr_get_monitors_reply_t> reply(
        xcb_randr_get_monitors_reply(x.get(), cookie, nullptr));
    if (reply) {
        auto it = xcb_randr_get_monitors_monitors_iterator(reply.get());
        for (; it.rem; xcb_randr_monitor_info_next(&it)) {
            const xcb_randr_monitor_info_t* monitor = it.data;
            SCDisplay display;
            display.displayID = monitor->name; // an atom: stable while the server runs
            display.frame = X11Coordinates::toGlobal(
                {monitor->x, monitor->y, monitor->width, monitor->height}, x.rootHeight());
            display.pixelScale = 1.0;
            if (monitor->primary)
                displays.insert(displays.begin(), display);
            else
                displays.push_back(display);
        }
    }
    // A server without RandR monitors still has its root window.
    if (displays.empty())
        displays.push_back(SCDisplay{x.root(), Rect(0, 0, x.rootWidth(), x.rootHeight()), 1.0});
    return displays;
}

std::vector<xcb_window_t> windowList(const X11Connection& x) {
    for (const char* name : {"_NET_CLIENT_LIST_STACKING", "_NET_CLIENT_LIST"})
        if (auto windows = x.rootWindowList(x.atom(name)); !windows.empty())
            return windows;
    return {};
}

std::optional<X11Rect> windowRect(const X11Connection& x, xcb_window_t window) {
    X11Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(x.get(), xcb_get_geometry(x.get(), window), nullptr));
    if (!geometry)
        return std::nullopt;
    X11Reply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(
        x.get(), xcb_translate_coordinates(x.get(), window, x.root(), 0, 0), nullptr));
    if (!origin)
        return std::nullopt;
    return X11Rect{origin->dst_x, origin->dst_y, geometry->width, geometry->height};
}

bool isViewable(const X11Connection& x, xcb_window_t window) {
    X11Reply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        x.get(), xcb_get_window_attributes(x.get(), window), nullptr));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

} // namespace

namespace X11ShareableContent {

SCRunningApplication applicationFor(const std::string& wmClass, const std::string& desktopFileID,
                                    int64_t processID) {
    // WM_CLASS is "instance\0class\0"; the class names the application.
    const size_t split = wmClass.find('\0');
    std::string className = split == std::string::npos ? wmClass : wmClass.substr(split + 1);
    if (const size_t end = className.find('\0'); end != std::string::npos)
        className.resize(end);
    if (className.empty() && split != std::string::npos)
        className = wmClass.substr(0, split);

    QString name = QString::fromStdString(className);
    QString bundleID = QString::fromStdString(desktopFileID);
    if (bundleID.endsWith(QLatin1String(".desktop")))
        bundleID.chop(8);
    if (bundleID.isEmpty())
        bundleID = name.toLower();
    // Qt names the program's windows after the executable.
    if (bundleID == QLatin1String("tavelquiston") || bundleID == QLatin1String("tavelquiston-cli"))
        bundleID = QString::fromLatin1(Constants::bundleIdentifier.data(),
                                       qsizetype(Constants::bundleIdentifier.size()));
    return SCRunningApplication{bundleID, name, processID};
}

SCShareableContent fetch(const X11Connection& x) {
    SCShareableContent content;
    content.displays = fetchDisplays(x);

    const xcb_atom_t netName = x.atom("_NET_WM_NAME");
    const xcb_atom_t utf8 = x.atom("UTF8_STRING");
    const xcb_atom_t extents = x.atom("_NET_FRAME_EXTENTS");
    const xcb_atom_t pidAtom = x.atom("_NET_WM_PID");
    const xcb_atom_t gtkID = x.atom("_GTK_APPLICATION_ID");
    const xcb_atom_t kdeDesktopFile = x.atom("_KDE_NET_WM_DESKTOP_FILE");

    for (xcb_window_t id : windowList(x)) {
        const std::optional<X11Rect> client = windowRect(x, id);
        if (!client)
            continue; // gone between the list and the question
        SCWindow window;
        window.windowID = id;
        std::string title = x.property(id, netName, utf8);
        if (title.empty())
            title = x.property(id, XCB_ATOM_WM_NAME, XCB_ATOM_ANY);
        window.title = QString::fromUtf8(title.data(), qsizetype(title.size()));

        // The frame includes the decorations the window manager drew around the client.
        X11Rect frame = *client;
        const std::string sides = x.property(id, extents, XCB_ATOM_CARDINAL);
        if (sides.size() >= 4 * sizeof(uint32_t)) {
            uint32_t e[4]; // left, right, top, bottom
            std::memcpy(e, sides.data(), sizeof e);
            frame = {client->x - int(e[0]), client->y - int(e[2]), client->width + int(e[0] + e[1]),
                     client->height + int(e[2] + e[3])};
        }
        window.frame = X11Coordinates::toGlobal(frame, x.rootHeight());
        window.isOnScreen = isViewable(x, id);

        int64_t pid = 0;
        const std::string pidBytes = x.property(id, pidAtom, XCB_ATOM_CARDINAL);
        if (pidBytes.size() >= sizeof(uint32_t)) {
            uint32_t value = 0;
            std::memcpy(&value, pidBytes.data(), sizeof value);
            pid = value;
        }
        const std::string wmClass = x.property(id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
        std::string desktopFile = x.property(id, gtkID, utf8);
        if (desktopFile.empty())
            desktopFile = x.property(id, kdeDesktopFile, utf8);
        if (!wmClass.empty() || !desktopFile.empty()) {
            window.owningApplication = applicationFor(wmClass, desktopFile, pid);
            const auto& app = *window.owningApplication;
            const bool known = std::any_of(content.applications.begin(), content.applications.end(),
                                           [&](const SCRunningApplication& a) {
                                               return a.bundleIdentifier == app.bundleIdentifier;
                                           });
            if (!known)
                content.applications.push_back(app);
        }
        content.windows.push_back(std::move(window));
    }
    return content;
}

} // namespace X11ShareableContent
