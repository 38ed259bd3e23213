#include <QCoreApplication>

#include <gtest/gtest.h>

// Every test program has a Qt application object, so timers, settings and D-Bus work in any test.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("tavelquiston-tests");
    QCoreApplication::setApplicationName("tavelquiston-tests");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
