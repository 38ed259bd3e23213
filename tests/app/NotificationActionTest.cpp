#include "core/support/NotificationManager.h"
#include "platform/desktop/DBusNotificationBackend.h"

#include "FakeDesktopServices.h"
#include "support/DBusSession.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QElapsedTimer>

#include <gtest/gtest.h>

namespace {
template <typename F>
bool waitFor(F condition) {
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return condition();
}
} // namespace

// "Recording Completed" offers "Show in Folder"; choosing it shows the recording in the file
// manager.
TEST(NotificationActionTest, CompletionNotificationShowsTheFileInItsFolder) {
    START_DBUS(bus);
    QDBusConnection desktop = QDBusConnection::connectToBus(QString::fromStdString(bus.address()),
                                                            QStringLiteral("tq-fake-desktop"));
    QDBusConnection program = QDBusConnection::connectToBus(QString::fromStdString(bus.address()),
                                                            QStringLiteral("tq-program"));
    FakeNotificationServer server;
    FakeFileManager files;
    ASSERT_TRUE(desktop.registerService(QStringLiteral("org.freedesktop.Notifications")));
    ASSERT_TRUE(desktop.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                                       QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(desktop.registerService(QStringLiteral("org.freedesktop.FileManager1")));
    ASSERT_TRUE(desktop.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &files,
                                       QDBusConnection::ExportAllSlots));

    {
        NotificationManager notifications(std::make_unique<DBusNotificationBackend>(program));
        notifications.setDeliveryDelay(0);
        notifications.sendCompletionNotification(QStringLiteral("/tmp/out/Recording at 1.mov"));
        ASSERT_TRUE(waitFor([&] { return !server.summary.isEmpty(); }));
        EXPECT_EQ(server.summary, "Recording Completed");
        EXPECT_TRUE(server.actions.contains("show-in-folder"));

        // Give the reply with the notification's id time to arrive before the person clicks.
        QElapsedTimer pause;
        pause.start();
        while (pause.elapsed() < 300)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QDBusMessage clicked = QDBusMessage::createSignal(
            QStringLiteral("/org/freedesktop/Notifications"),
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("ActionInvoked"));
        clicked << uint(42) << QStringLiteral("show-in-folder");
        desktop.send(clicked);
        ASSERT_TRUE(waitFor([&] { return !files.shown.isEmpty(); }));
        EXPECT_EQ(files.shown, QStringList{"file:///tmp/out/Recording at 1.mov"});
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("tq-program"));
    QDBusConnection::disconnectFromBus(QStringLiteral("tq-fake-desktop"));
}
