#include "platform/desktop/DBusPowerAssertionBackend.h"

#include "FakeDesktopServices.h"
#include "support/DBusSession.h"

#include <gtest/gtest.h>

#include <poll.h>

namespace {
QDBusConnection connect(const DBusSession& bus, const char* name) {
    return QDBusConnection::connectToBus(QString::fromStdString(bus.address()), name);
}
} // namespace

// With no screen saver and no logind on the buses, nothing is held.
TEST(DBusPowerAssertionBackendTest, noServiceHoldsNothing) {
    REQUIRE_DBUS();
    DBusSession session, system;
    ASSERT_TRUE(session.isReady() && system.isReady());
    {
        SleepPreventer preventer(std::make_unique<DBusPowerAssertionBackend>(
            connect(session, "s1"), connect(system, "y1")));
        testing::internal::CaptureStdout();
        preventer.preventSleep("Screen recording in progress");
        testing::internal::GetCapturedStdout();
        EXPECT_FALSE(preventer.isPreventingSleep());
    }
    QDBusConnection::disconnectFromBus("s1");
    QDBusConnection::disconnectFromBus("y1");
}

// The screen saver gets our name and reason; its cookie is the assertion id, given back on release.
TEST(DBusPowerAssertionBackendTest, screenSaverInhibitAndRelease) {
    REQUIRE_DBUS();
    DBusSession session, system;
    auto* screenSaver = new FakeScreenSaver;
    FakeServiceHost host(QString::fromStdString(session.address()), "org.freedesktop.ScreenSaver",
                         "/org/freedesktop/ScreenSaver", screenSaver);
    ASSERT_TRUE(host.ok());
    {
        SleepPreventer preventer(std::make_unique<DBusPowerAssertionBackend>(
            connect(session, "s2"), connect(system, "y2")));
        testing::internal::CaptureStdout();
        preventer.preventSleep("Screen recording in progress");
        EXPECT_EQ(preventer.assertionID(), 1001u);
        preventer.allowSleep();
        testing::internal::GetCapturedStdout();
    }
    QMutexLocker lock(&screenSaver->mutex);
    EXPECT_EQ(screenSaver->inhibits, QStringList{"tavelquiston|Screen recording in progress"});
    EXPECT_EQ(screenSaver->uninhibits, QList<uint>{1001});
    lock.unlock();
    QDBusConnection::disconnectFromBus("s2");
    QDBusConnection::disconnectFromBus("y2");
    delete screenSaver;
}

// Without a screen saver, logind's idle inhibitor holds the display awake until we close its
// descriptor on release.
TEST(DBusPowerAssertionBackendTest, logindFallbackHoldsTheDescriptor) {
    REQUIRE_DBUS();
    DBusSession session, system;
    auto* logind = new FakeLogind;
    FakeServiceHost host(QString::fromStdString(system.address()), "org.freedesktop.login1",
                         "/org/freedesktop/login1", logind);
    ASSERT_TRUE(host.ok());
    {
        SleepPreventer preventer(std::make_unique<DBusPowerAssertionBackend>(
            connect(session, "s3"), connect(system, "y3")));
        testing::internal::CaptureStdout();
        preventer.preventSleep("Screen recording in progress");
        testing::internal::GetCapturedStdout();
        ASSERT_TRUE(preventer.isPreventingSleep());

        QMutexLocker lock(&logind->mutex);
        EXPECT_EQ(logind->inhibits,
                  QStringList{"idle|tavelquiston|Screen recording in progress|block"});
        pollfd held{logind->readEnd, POLLIN, 0};
        EXPECT_EQ(::poll(&held, 1, 0), 0) << "the inhibitor was let go while still needed";
        lock.unlock();

        testing::internal::CaptureStdout();
        preventer.allowSleep();
        testing::internal::GetCapturedStdout();
        pollfd released{logind->readEnd, POLLIN, 0};
        EXPECT_EQ(::poll(&released, 1, 1000), 1) << "the inhibitor is still held after release";
    }
    QDBusConnection::disconnectFromBus("s3");
    QDBusConnection::disconnectFromBus("y3");
    ::close(logind->readEnd);
    delete logind;
}
