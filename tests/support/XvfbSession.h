#pragma once

#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"

#include <memory>
#include <string>

// A private X server on a free display for one test or suite, optionally with a window manager
// that sets the EWMH properties and optionally split into two monitors. While it lives, DISPLAY
// points at it. Input goes through XTEST (xdotool).
class XvfbSession {
public:
    struct Options {
        int width = 1920;
        int height = 1080;
        bool windowManager = false;
        // Two 1920x1080 monitors side by side on one 3840x1080 screen; the left one is primary.
        bool twoMonitors = false;
    };

    // The small screen with a window manager that most recording tests use.
    static Options desktop() {
        Options options;
        options.width = 640;
        options.height = 480;
        options.windowManager = true;
        return options;
    }

    // Whether the tools this session needs are installed (Xvfb; openbox, xrandr when asked).
    static std::string missingTool(const Options& options);

    explicit XvfbSession(Options options);
    XvfbSession() : XvfbSession(Options{}) {}
    ~XvfbSession();

    bool isReady() const { return m_ready; }
    const std::string& error() const { return m_error; }
    const std::string& display() const { return m_display; }
    int serverPid() const { return m_server.pid(); }
    int screenWidth() const { return m_options.twoMonitors ? 3840 : m_options.width; }
    int screenHeight() const { return m_options.height; }

    // XTEST input, in root window coordinates (origin top left). Each waits for xdotool.
    bool moveTo(int x, int y);
    bool moveBy(int dx, int dy);
    bool click(int button = 1);
    // The pointer's position from the server, origin top left.
    std::pair<int, int> pointerPosition() const;

    // Runs a program on this display (an xterm, a test window); stopped with the session.
    ChildProcess& launch(const std::vector<std::string>& argv);

private:
    bool startServer();
    bool startWindowManager();
    bool splitMonitors();

    Options m_options;
    bool m_ready = false;
    std::string m_error;
    std::string m_display;
    ChildProcess m_server;
    ChildProcess m_windowManager;
    std::vector<std::unique_ptr<ChildProcess>> m_clients;
    std::unique_ptr<ScopedEnvironment> m_displayVariable;
};

#define REQUIRE_XVFB(options) REQUIRE_NOTHING_MISSING(XvfbSession::missingTool(options))

// Starts a session named `name` for the current test; skips the test (fails it under CI) when
// a tool is missing, and fails it when the server does not come up.
#define START_XVFB(name, options)                                                                  \
    REQUIRE_XVFB(options);                                                                         \
    XvfbSession name(options);                                                                     \
    ASSERT_TRUE(name.isReady()) << name.error()
