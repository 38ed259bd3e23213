#pragma once

#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"

#include <memory>
#include <string>

// A private D-Bus session bus. While it lives, DBUS_SESSION_BUS_ADDRESS points at it. Code under
// test should connect with QDBusConnection::connectToBus(address(), name), because Qt keeps the
// first session bus connection of a process for good.
class DBusSession {
public:
    static std::string missingTool();

    DBusSession();
    ~DBusSession();

    bool isReady() const { return !m_address.empty(); }
    const std::string& error() const { return m_error; }
    const std::string& address() const { return m_address; }

private:
    std::string m_error;
    std::string m_address;
    ChildProcess m_daemon;
    std::unique_ptr<ScopedEnvironment> m_addressVariable;
};

#define REQUIRE_DBUS() REQUIRE_NOTHING_MISSING(DBusSession::missingTool())

// Starts a private bus named `name` for the current test, or skips the test (fails it under CI)
// when a tool is missing; fails it when the bus does not come up.
#define START_DBUS(name)                                                                           \
    REQUIRE_DBUS();                                                                                \
    DBusSession name;                                                                              \
    ASSERT_TRUE(name.isReady()) << name.error()
