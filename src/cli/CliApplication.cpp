#include "cli/CliCommand.h"
#include "cli/RecordCommand.h"

#include "core/support/ErrorReporter.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>

#include <memory>
#include <string_view>

#include <fmt/format.h>

namespace {
void printUsage(FILE* out) {
    fmt::print(out, "usage: tavelquiston-cli <command> [options]\n\ncommands:\n");
    for (const CliCommand& command : cliCommands())
        fmt::print(out, "  {:<44} {}\n", command.usage, command.summary);
    fmt::print(out, "  {:<44} {}\n", "help", "show this text");
    fmt::print(out, "  {:<44} {}\n", "--version", "print the version");
}
} // namespace

namespace {
// The live pointer overlays are windows: a recording that shows them needs a GUI application,
// everything else runs without a display connection of Qt's own.
bool needsWindows(int argc, char** argv) {
    if (argc >= 2 && std::string_view(argv[1]) == "play")
        return true;
    if (argc < 2 || std::string_view(argv[1]) != "record")
        return false;
    for (int i = 2; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--highlight" || argument == "--magnifier" ||
            argument == "--cursor-style" || argument == "--preview")
            return true;
    }
    return false;
}
} // namespace

int runCli(int argc, char** argv) {
    // The camera overlay and the pointer overlays must be windows on the X display being
    // recorded, whatever Qt would pick; every other command stays free of any display, and
    // without one the recording fails later with its own message.
    QStringList given;
    for (int i = 1; i < argc; ++i)
        given.append(QString::fromLocal8Bit(argv[i]));
    const bool windows = (recordShowsCameraOverlay(given) || needsWindows(argc, argv)) &&
                         !qEnvironmentVariableIsEmpty("DISPLAY");
    if (windows)
        qputenv("QT_QPA_PLATFORM", "xcb");
    // Qt sees the program's name alone: it would take options of ours that are also its own
    // ("--display ID" is an X display to QApplication) and leave them out of the arguments.
    static int qtArgc = 1;
    const std::unique_ptr<QCoreApplication> app =
        windows ? std::make_unique<QApplication>(qtArgc, argv)
                : std::make_unique<QCoreApplication>(qtArgc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("tavelquiston"));
    QCoreApplication::setApplicationName(QStringLiteral("tavelquiston"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAVELQUISTON_VERSION));
    // Alerts of a command-line run go to standard error; there is no window to show them in.
    ErrorReporter::shared().setAlertPresenter(std::make_unique<StandardErrorAlertPresenter>());

    QStringList arguments = given;
    if (arguments.isEmpty()) {
        printUsage(stderr);
        return 2;
    }
    const QString name = arguments.takeFirst();
    if (name == QLatin1String("help") || name == QLatin1String("--help") ||
        name == QLatin1String("-h")) {
        printUsage(stdout);
        return 0;
    }
    if (name == QLatin1String("--version")) {
        fmt::print("tavelquiston-cli {}\n", TAVELQUISTON_VERSION);
        return 0;
    }
    for (const CliCommand& command : cliCommands()) {
        if (name == QLatin1String(command.name.data(), qsizetype(command.name.size())))
            return command.run(arguments);
    }
    fmt::print(stderr, "❌ Unknown command \"{}\"\n\n", name.toStdString());
    printUsage(stderr);
    return 2;
}
