#include "cli/PlayCommand.h"

#include "app/player/AudioPackagePlayerWindow.h"
#include "media/AudioPackagePlayback.h"

#include <QApplication>

#include <fmt/format.h>

namespace {

constexpr std::string_view usage = "play PACKAGE";

int runPlay(const QStringList& arguments) {
    if (arguments.size() != 1 || arguments.front().startsWith('-')) {
        fmt::print(stderr, "❌ Give one audio package\nusage: tavelquiston-cli {}\n", usage);
        return 2;
    }
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        fmt::print(stderr, "❌ play shows a window and needs a display (DISPLAY is not set)\n");
        return 2;
    }
    std::shared_ptr<AudioPackagePlayback> playback;
    try {
        playback = std::make_shared<AudioPackagePlayback>(arguments.front().toStdString());
    } catch (const AudioPackageError& error) {
        fmt::print(stderr, "❌ {}\n", error.what());
        return 2;
    }
    AudioPackagePlayerWindow window(playback);
    QObject::connect(&window, &AudioPackagePlayerWindow::exportFinished,
                     [](const QString& path, const QString& error) {
                         if (path.isEmpty())
                             fmt::print(stderr, "❌ {}\n", error.toStdString());
                         else
                             fmt::print("{}\n", path.toStdString());
                         std::fflush(stdout);
                     });
    window.show();
    return QApplication::exec();
}

} // namespace

CliCommand playCommand() {
    return CliCommand{"play", usage, "play an audio package with a volume for each source",
                      runPlay};
}
