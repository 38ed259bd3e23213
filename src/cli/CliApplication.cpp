#include "cli/CliCommand.h"
#include "cli/RecordCommand.h"

#include "core/support/ErrorReporter.h"

#include <QApplication>
#include <QCoreApplication>

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

int runCli(int argc, char** argv) {
    // Windows need a GUI application; every other command stays free of any display.
    QStringList given;
    for (int i = 1; i < argc; ++i)
        given.append(QString::fromLocal8Bit(argv[i]));
    std::unique_ptr<QCoreApplication> app;
    if (recordShowsCameraOverlay(given))
        app = std::make_unique<QApplication>(argc, argv);
    else
        app = std::make_unique<QCoreApplication>(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("tavelquiston"));
    QCoreApplication::setApplicationName(QStringLiteral("tavelquiston"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAVELQUISTON_VERSION));
    // Alerts of a command-line run go to standard error; there is no window to show them in.
    ErrorReporter::shared().setAlertPresenter(std::make_unique<StandardErrorAlertPresenter>());

    QStringList arguments = QCoreApplication::arguments().mid(1);
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
