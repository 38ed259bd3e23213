#include "platform/desktop/DBusNotificationBackend.h"

#include "FakeDesktopServices.h"
#include "support/DBusSession.h"
#include "support/EventLoop.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

// Notifications reach the service with our texts and identifier hint; authorisation is the
// service answering.
TEST(DBusNotificationBackendTest, notifyCarriesTextsAndIdentifier) {
    REQUIRE_DBUS();
    DBusSession bus;
    auto* service = new FakeNotifications;
    FakeServiceHost host(QString::fromStdString(bus.address()), "org.freedesktop.Notifications",
                         "/org/freedesktop/Notifications", service);
    ASSERT_TRUE(host.ok());
    {
        NotificationManager manager(std::make_unique<DBusNotificationBackend>(
            QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "n1")));
        manager.setDeliveryDelay(0);
        bool answered = false;
        manager.requestAuthorization([&](bool) { answered = true; });
        ASSERT_TRUE(waitUntil([&] { return answered; }, 5000ms));
        EXPECT_TRUE(manager.isAuthorized());

        manager.sendCompletionNotification("/tmp/Recording at 2026-01-01 10.00.00.mov");
        manager.sendNotification("Hello", "World", true);
        ASSERT_TRUE(waitUntil(
            [&] {
                QMutexLocker lock(&service->mutex);
                return service->calls.size() == 2;
            },
            5000ms));
    }
    QMutexLocker lock(&service->mutex);
    const auto& first = service->calls[0];
    EXPECT_EQ(first.application, "tavelquiston");
    EXPECT_EQ(first.summary, "Recording Completed");
    EXPECT_EQ(first.body, "File saved to: Recording at 2026-01-01 10.00.00.mov");
    EXPECT_EQ(first.hints.value("x-tavelquiston-id").toString(),
              "tavelquiston.notification.completed");
    EXPECT_EQ(first.timeout, -1);
    EXPECT_EQ(service->calls[1].hints.value("sound-name").toString(), "message-new-instant");
    lock.unlock();
    QDBusConnection::disconnectFromBus("n1");
    delete service;
}

// With no notification service on the bus, asking and posting both end in the bus's error, and
// nothing crashes.
TEST(DBusNotificationBackendTest, noServiceGivesTheBusError) {
    REQUIRE_DBUS();
    DBusSession bus;
    {
        DBusNotificationBackend backend(
            QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "n2"));
        std::optional<std::optional<QString>> asked, posted;
        backend.requestAuthorization([&](std::optional<QString> error) { asked = error; });
        backend.post(NotificationRequest{"tavelquiston.notification.diskspace", "Low Disk Space",
                                         "Your disk is running low on space.", false},
                     [&](std::optional<QString> error) { posted = error; });
        ASSERT_TRUE(waitUntil([&] { return asked && posted; }, 10000ms));
        const QString unknown = QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown: ");
        EXPECT_TRUE(asked->value_or(QString()).startsWith(unknown))
            << asked->value_or("none").toStdString();
        EXPECT_TRUE(posted->value_or(QString()).startsWith(unknown))
            << posted->value_or("none").toStdString();
    }
    QDBusConnection::disconnectFromBus("n2");
}
