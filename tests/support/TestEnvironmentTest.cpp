#include <QByteArray>
#include <QtGlobal>

#include <gtest/gtest.h>

// Under ctest every test program is kept off the user's session bus; a test that needs a bus
// starts its own (DBusSession).
TEST(TestEnvironmentTest, CtestKeepsTestsOffTheSessionBus) {
    if (qgetenv("TAVELQUISTON_TEST_ENVIRONMENT") != "ctest")
        GTEST_SKIP() << "only meaningful when run through ctest";
    EXPECT_EQ(qgetenv("DBUS_SESSION_BUS_ADDRESS"), QByteArray("disabled:"));
    EXPECT_EQ(qgetenv("QT_QPA_PLATFORM"), QByteArray("offscreen"));
}
