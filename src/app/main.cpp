#include "app/ApplicationShell.h"
#include "app/trimmer/TrimmerWindow.h"

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

    // A file on the command line opens in the trimmer.
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() == 2 && !arguments[1].startsWith(QLatin1Char('-')))
        return TrimmerWindow::openOrExplain(arguments[1]) ? QApplication::exec() : 2;
    ApplicationShell shell(arguments);
    return QApplication::exec();
}
