#include "support/XvfbSession.h"

#include <xcb/xcb.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <thread>

using namespace std::chrono_literals;

namespace {
const auto serviceTimeout = std::chrono::milliseconds(serviceStartBound);

struct XcbConnection {
    explicit XcbConnection(const std::string& display)
        : connection(xcb_connect(display.c_str(), nullptr)) {}
    ~XcbConnection() { xcb_disconnect(connection); }
    bool ok() const { return connection && !xcb_connection_has_error(connection); }
    xcb_screen_t* screen() const {
        return xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    }
    xcb_connection_t* connection;
};

xcb_atom_t atom(xcb_connection_t* connection, const char* name) {
    auto* reply = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 1, uint16_t(strlen(name)), name), nullptr);
    const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    free(reply);
    return result;
}

bool windowManagerRunning(const std::string& display) {
    XcbConnection x(display);
    if (!x.ok())
        return false;
    const xcb_atom_t check = atom(x.connection, "_NET_SUPPORTING_WM_CHECK");
    if (check == XCB_ATOM_NONE)
        return false;
    auto* reply = xcb_get_property_reply(
        x.connection,
        xcb_get_property(x.connection, 0, x.screen()->root, check, XCB_ATOM_WINDOW, 0, 1), nullptr);
    const bool present = reply && xcb_get_property_value_length(reply) == 4;
    free(reply);
    return present;
}

bool clientListed(xcb_connection_t* connection, xcb_window_t root, xcb_atom_t list,
                  xcb_window_t window) {
    auto* reply = xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, root, list, XCB_ATOM_WINDOW, 0, 1024), nullptr);
    bool found = false;
    if (reply) {
        const auto* ids = static_cast<const xcb_window_t*>(xcb_get_property_value(reply));
        const int count = xcb_get_property_value_length(reply) / 4;
        found = std::find(ids, ids + count, window) != ids + count;
    }
    free(reply);
    return found;
}

// openbox announces itself before it manages new windows: a client mapped in that gap is never
// listed. Map probe windows until one is listed (a probe lost in the gap is replaced after a
// while), then take it away again.
bool windowManagerManagesClients(const std::string& display) {
    XcbConnection x(display);
    if (!x.ok())
        return false;
    const xcb_window_t root = x.screen()->root;
    const xcb_atom_t list = atom(x.connection, "_NET_CLIENT_LIST");
    const auto deadline = std::chrono::steady_clock::now() + serviceTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        const xcb_window_t probe = xcb_generate_id(x.connection);
        xcb_create_window(x.connection, XCB_COPY_FROM_PARENT, probe, root, 0, 0, 10, 10, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, x.screen()->root_visual, 0, nullptr);
        xcb_map_window(x.connection, probe);
        xcb_flush(x.connection);
        bool listed = false;
        const auto probeDeadline = std::min(deadline, std::chrono::steady_clock::now() + 500ms);
        while (!listed && std::chrono::steady_clock::now() < probeDeadline) {
            listed = clientListed(x.connection, root, list, probe);
            if (!listed)
                std::this_thread::sleep_for(10ms);
        }
        xcb_destroy_window(x.connection, probe);
        xcb_flush(x.connection);
        if (listed) {
            while (clientListed(x.connection, root, list, probe) &&
                   std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(10ms);
            return true;
        }
    }
    return false;
}

} // namespace

std::string XvfbSession::missingTool(const Options& options) {
    for (const char* tool : {"Xvfb", "xdotool"}) {
        if (!findExecutable(tool))
            return tool;
    }
    if (options.windowManager && !findExecutable("openbox"))
        return "openbox";
    if (options.twoMonitors && !findExecutable("xrandr"))
        return "xrandr";
    return {};
}

XvfbSession::XvfbSession(Options options) : m_options(options) {
    if (!startServer())
        return;
    m_displayVariable = std::make_unique<ScopedEnvironment>("DISPLAY", m_display);
    if (m_options.twoMonitors && !splitMonitors())
        return;
    if (m_options.windowManager && !startWindowManager())
        return;
    m_ready = true;
}

XvfbSession::~XvfbSession() {
    m_clients.clear();
    m_windowManager.stop();
    m_server.stop();
}

bool XvfbSession::startServer() {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        m_error = "pipe failed";
        return false;
    }
    const int width = m_options.twoMonitors ? 3840 : m_options.width;
    const std::string screen =
        std::to_string(width) + "x" + std::to_string(m_options.height) + "x24";
    ChildProcess::Options options;
    options.inheritedFd = pipeFds[1];
    // -noreset: without it the server resets when its last client leaves and loses monitors.
    m_server = ChildProcess({"Xvfb", "-displayfd", std::to_string(pipeFds[1]), "-noreset",
                             "-nolisten", "tcp", "-screen", "0", screen},
                            options);
    ::close(pipeFds[1]);

    std::string number;
    const auto deadline = std::chrono::steady_clock::now() + serviceTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd pfd{pipeFds[0], POLLIN, 0};
        if (::poll(&pfd, 1, 100) > 0) {
            char buffer[32];
            const ssize_t n = ::read(pipeFds[0], buffer, sizeof buffer);
            if (n <= 0)
                break;
            number.append(buffer, size_t(n));
            if (number.find('\n') != std::string::npos)
                break;
        }
        if (!m_server.isRunning())
            break;
    }
    ::close(pipeFds[0]);
    while (!number.empty() && (number.back() == '\n' || number.back() == ' '))
        number.pop_back();
    if (number.empty()) {
        m_error = "Xvfb did not report a display within 20 s";
        return false;
    }
    m_display = ":" + number;
    return true;
}

bool XvfbSession::startWindowManager() {
    m_windowManager = ChildProcess({"openbox", "--sm-disable"}, {});
    const auto deadline = std::chrono::steady_clock::now() + serviceTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (windowManagerRunning(m_display)) {
            if (windowManagerManagesClients(m_display))
                return true;
            m_error = "openbox took the screen but listed no new window within 20 s";
            return false;
        }
        std::this_thread::sleep_for(20ms);
    }
    m_error = "openbox did not take the screen within 20 s";
    return false;
}

// The left monitor takes over the server's one output (dropping the automatic monitor that
// spans the screen); the right one has no output of its own.
bool XvfbSession::splitMonitors() {
    const int h = m_options.height;
    const std::string left = "1920/508x" + std::to_string(h) + "/286+0+0";
    const std::string right = "1920/508x" + std::to_string(h) + "/286+1920+0";
    if (runCommand({"xrandr", "--setmonitor", "*left", left, "screen"}, serviceTimeout) != 0 ||
        runCommand({"xrandr", "--setmonitor", "right", right, "none"}, serviceTimeout) != 0) {
        m_error = "xrandr --setmonitor failed";
        return false;
    }
    return true;
}

bool XvfbSession::moveTo(int x, int y) {
    return runCommand({"xdotool", "mousemove", std::to_string(x), std::to_string(y)},
                      serviceTimeout) == 0;
}

bool XvfbSession::moveBy(int dx, int dy) {
    return runCommand(
               {"xdotool", "mousemove_relative", "--", std::to_string(dx), std::to_string(dy)},
               serviceTimeout) == 0;
}

bool XvfbSession::click(int button) {
    return runCommand({"xdotool", "click", std::to_string(button)}, serviceTimeout) == 0;
}

std::pair<int, int> XvfbSession::pointerPosition() const {
    XcbConnection x(m_display);
    if (!x.ok())
        return {-1, -1};
    auto* reply = xcb_query_pointer_reply(
        x.connection, xcb_query_pointer(x.connection, x.screen()->root), nullptr);
    if (!reply)
        return {-1, -1};
    const std::pair<int, int> position{reply->root_x, reply->root_y};
    free(reply);
    return position;
}

ChildProcess& XvfbSession::launch(const std::vector<std::string>& argv) {
    m_clients.push_back(std::make_unique<ChildProcess>(argv, ChildProcess::Options{}));
    return *m_clients.back();
}
