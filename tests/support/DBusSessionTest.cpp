#include "support/DBusSession.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>

// A private bus starts, exports its address, and a name can be owned and seen on it.
TEST(DBusSessionTest, privateBusAcceptsConnectionsAndNames) {
    REQUIRE_DBUS();
    DBusSession bus;
    ASSERT_TRUE(bus.isReady()) << bus.error();
    EXPECT_EQ(std::getenv("DBUS_SESSION_BUS_ADDRESS"), bus.address());

    {
        QDBusConnection connection =
            QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "smoke");
        ASSERT_TRUE(connection.isConnected()) << connection.lastError().message().toStdString();
        ASSERT_TRUE(connection.registerService("org.tavelquiston.Smoke"));
        EXPECT_TRUE(connection.interface()->isServiceRegistered("org.tavelquiston.Smoke"));
    }
    QDBusConnection::disconnectFromBus("smoke");
}
