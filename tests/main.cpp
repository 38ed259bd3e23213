#ifdef TAVELQUISTON_TEST_WIDGETS
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

#include "support/CiSkipPolicy.h"

#include <gtest/gtest.h>

// Every test program has a Qt application object, so timers, settings and D-Bus work in any
// test; the widget tests get a full one (offscreen unless a test starts its own display).
int main(int argc, char** argv) {
    // In-process widgets never need a real display; programs a test starts choose their own.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    TestApplication app(argc, argv);
    QCoreApplication::setOrganizationName("tavelquiston-tests");
    QCoreApplication::setApplicationName("tavelquiston-tests");
    ::testing::InitGoogleTest(&argc, argv);
    // A skip under CI is a failure of the run, but for the one allowed.
    auto* skips = new CiSkipPolicy::Listener; // owned by the listener list
    ::testing::UnitTest::GetInstance()->listeners().Append(skips);
    const int status = RUN_ALL_TESTS();
    return status != 0 ? status : (skips->disallowedSkips() > 0 ? 1 : 0);
}
