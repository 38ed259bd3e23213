#include "support/DBusSession.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace std::chrono_literals;

std::string DBusSession::missingTool() {
    return findExecutable("dbus-daemon") ? std::string() : "dbus-daemon";
}

DBusSession::DBusSession() {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        m_error = "pipe failed";
        return;
    }
    ChildProcess::Options options;
    options.inheritedFd = pipeFds[1];
    m_daemon = ChildProcess({"dbus-daemon", "--session", "--nofork", "--nopidfile",
                             "--print-address=" + std::to_string(pipeFds[1])},
                            options);
    ::close(pipeFds[1]);

    std::string address;
    const auto deadline = std::chrono::steady_clock::now() + serviceStartBound;
    while (std::chrono::steady_clock::now() < deadline && address.find('\n') == std::string::npos) {
        pollfd pfd{pipeFds[0], POLLIN, 0};
        if (::poll(&pfd, 1, 100) > 0) {
            char buffer[256];
            const ssize_t n = ::read(pipeFds[0], buffer, sizeof buffer);
            if (n <= 0)
                break;
            address.append(buffer, size_t(n));
        }
        if (!m_daemon.isRunning())
            break;
    }
    ::close(pipeFds[0]);
    if (const auto newline = address.find('\n'); newline != std::string::npos) {
        m_address = address.substr(0, newline);
        m_addressVariable =
            std::make_unique<ScopedEnvironment>("DBUS_SESSION_BUS_ADDRESS", m_address);
    } else {
        m_error = "dbus-daemon did not print its address within 20 s";
    }
}

DBusSession::~DBusSession() {
    m_addressVariable.reset();
    m_daemon.stop();
}
