#include "app/ApplicationShell.h"

#include <QApplication>

#include <fmt/format.h>

int main(int argc, char** argv) {
    // Qt would abort with a terse message of its own; say what is wrong and where to go instead.
    if (!ApplicationShell::displayAvailable()) {
        fmt::print(stderr,
                   "❌ No display found: tavelquiston is a desktop program and needs an X11 display "
                   "(DISPLAY is not set). For work without a display, use tavelquiston-cli.\n");
        return 1;
    }
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("tavelquiston"));
    QApplication::setApplicationName(QStringLiteral("tavelquiston"));
    QApplication::setDesktopFileName(QStringLiteral("com.tavelquiston.app"));
    QApplication::setQuitOnLastWindowClosed(true);

    ApplicationShell shell(QApplication::arguments());
    return QApplication::exec();
}
