#include "app/ApplicationShell.h"
#include "app/InstanceControl.h"
#include "app/RecordingLauncher.h"
#include "app/VideoTrimmerManager.h"

#include <QFileInfo>

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <fmt/format.h>

#include <optional>

namespace {
QStringList argumentList(int argc, char** argv) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

// "--toggle-recording", "--pause" and "--stop" go to the running instance, and a plain start
// brings the running instance's window forward. Returns the exit status when this process is
// done, nothing when it should become the instance itself. Needs the application object: Qt
// keeps the first session bus connection of a process for good.
std::optional<int> forwardToRunningInstance(const QStringList& arguments) {
    const std::optional<QString> command = InstanceControl::commandFromArguments(arguments);
    const QString method = command.value_or(QStringLiteral("Activate"));
    if (InstanceControl::forward(method) == InstanceControl::Forwarded::delivered)
        return 0;
    // Toggling with nothing running starts the program and its recording; pausing or stopping
    // nothing is a mistake worth saying.
    if (command && *command != QLatin1String("ToggleRecording")) {
        fmt::print(stderr, "❌ tavelquiston is not running; nothing to {}\n",
                   *command == QLatin1String("StopRecording") ? "stop" : "pause");
        return 1;
    }
    return std::nullopt;
}
} // namespace

int main(int argc, char** argv) {
    QElapsedTimer sinceStart;
    sinceStart.start();
    // Qt would abort with a terse message of its own; say what is wrong and where to go instead.
    if (!ApplicationShell::displayAvailable()) {
        // A running instance can still be told what to do from a shell without a display.
        if (InstanceControl::commandFromArguments(argumentList(argc, argv))) {
            QCoreApplication core(argc, argv);
            if (const std::optional<int> status = forwardToRunningInstance(core.arguments()))
                return *status;
        }
        fmt::print(stderr,
                   "❌ No display found: tavelquiston is a desktop program and needs an X11 display "
                   "(DISPLAY is not set). For work without a display, use tavelquiston-cli.\n");
        return 1;
    }
    QApplication app(argc, argv);
    const QStringList arguments = QApplication::arguments();
    // A file goes to the running instance, which keeps one trimmer per file; with none running
    // it opens in a trimmer of this process's own.
    const bool opensFile = arguments.size() == 2 && !arguments[1].startsWith(QLatin1Char('-'));
    if (opensFile) {
        const QString path = QFileInfo(arguments[1]).absoluteFilePath();
        if (InstanceControl::forward(QStringLiteral("OpenFile"), {path}) ==
            InstanceControl::Forwarded::delivered)
            return 0;
    } else if (const std::optional<int> status = forwardToRunningInstance(arguments)) {
        return *status;
    }
    QApplication::setOrganizationName(QStringLiteral("tavelquiston"));
    QApplication::setApplicationName(QStringLiteral("tavelquiston"));
    QApplication::setDesktopFileName(QStringLiteral("com.tavelquiston.app"));
    // The tray and the panel keep a recording going with every window closed.
    QApplication::setQuitOnLastWindowClosed(false);

    // A file on the command line opens in the trimmer.
    if (opensFile)
        return VideoTrimmerManager::shared().openTrimmer(arguments[1]) ? QApplication::exec() : 2;
    ApplicationShell shell(arguments, sinceStart);
    if (InstanceControl::commandFromArguments(arguments))
        QTimer::singleShot(0, &shell.launcher(), &RecordingLauncher::toggleRecording);
    return QApplication::exec();
}
