#include "platform/desktop/DBusSystemEventMonitor.h"

#include "support/DBusSession.h"

#include <QCoreApplication>
#include <QDBusMessage>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

// Sends a signal as logind or the screen saver would, from a connection of its own.
void emitSignal(const DBusSession& bus, const char* connectionName, const QString& path,
                const QString& interface, const QString& member, const QVariantList& arguments) {
    QDBusConnection sender =
        QDBusConnection::connectToBus(QString::fromStdString(bus.address()), connectionName);
    QDBusMessage message = QDBusMessage::createSignal(path, interface, member);
    message.setArguments(arguments);
    sender.send(message);
}

bool waitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

} // namespace

// logind's PrepareForSleep on the system bus and the screen saver's ActiveChanged on the session
// bus reach the handler as the recorder's events, from any sender; nothing after remove().
TEST(DBusSystemEventMonitorTest, DesktopSignalsBecomeEvents) {
    REQUIRE_DBUS();
    DBusSession session, system;
    ASSERT_TRUE(session.isReady() && system.isReady());
    std::vector<SystemEventMonitor::Event> events;
    {
        DBusSystemEventMonitor monitor(
            QDBusConnection::connectToBus(QString::fromStdString(session.address()), "ev-s"),
            QDBusConnection::connectToBus(QString::fromStdString(system.address()), "ev-y"));
        monitor.install([&](SystemEventMonitor::Event event) { events.push_back(event); });

        emitSignal(system, "ev-logind", QStringLiteral("/org/freedesktop/login1"),
                   QStringLiteral("org.freedesktop.login1.Manager"),
                   QStringLiteral("PrepareForSleep"), {true});
        ASSERT_TRUE(waitFor([&] { return events.size() == 1; }));
        EXPECT_EQ(events.back(), SystemEventMonitor::Event::willSleep);
        emitSignal(system, "ev-logind", QStringLiteral("/org/freedesktop/login1"),
                   QStringLiteral("org.freedesktop.login1.Manager"),
                   QStringLiteral("PrepareForSleep"), {false});
        // Two buses keep no order between them: one signal at a time.
        ASSERT_TRUE(waitFor([&] { return events.size() == 2; }));
        emitSignal(session, "ev-saver", QStringLiteral("/org/freedesktop/ScreenSaver"),
                   QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("ActiveChanged"),
                   {true});
        ASSERT_TRUE(waitFor([&] { return events.size() == 3; }));
        EXPECT_EQ(events[1], SystemEventMonitor::Event::didWake);
        EXPECT_EQ(events[2], SystemEventMonitor::Event::screensDidSleep);

        monitor.remove();
        emitSignal(session, "ev-saver", QStringLiteral("/org/freedesktop/ScreenSaver"),
                   QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("ActiveChanged"),
                   {false});
        for (int i = 0; i < 20; ++i) {
            QCoreApplication::processEvents();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(events.size(), 3u);
    }
    for (const char* name : {"ev-s", "ev-y", "ev-logind", "ev-saver"})
        QDBusConnection::disconnectFromBus(name);
}
