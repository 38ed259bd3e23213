#include "cli/RecoverCommand.h"

#include "core/settings/RecordingConfigurationBuilder.h"
#include "core/settings/UserDefaults.h"
#include "media/RecordingSalvage.h"
#include "media/layers/RecordingPackageSalvage.h"

#include <QFileInfo>

#include <fmt/format.h>

#include <string_view>

namespace {
constexpr std::string_view usage = "recover [DIR]";
} // namespace

int runRecover(const QStringList& arguments, FILE* out, FILE* err) {
    if (arguments.size() > 1 || (!arguments.isEmpty() && arguments.front().startsWith('-'))) {
        fmt::print(err, "❌ Unexpected argument \"{}\"\nusage: tavelquiston-cli {}\n",
                   arguments.back().toStdString(), usage);
        return 2;
    }
    // Where recordings go unless a command line said otherwise.
    const QString folder = arguments.isEmpty()
                               ? RecordingConfigurationBuilder::resolveOutputDirectory(
                                     UserDefaults::standard().stringValue("outputDirectory", {}))
                               : arguments.front();
    if (!QFileInfo(folder).isDir()) {
        fmt::print(err, "❌ \"{}\" is not a folder\nusage: tavelquiston-cli {}\n",
                   folder.toStdString(), usage);
        return 2;
    }

    const auto movies = findUnfinishedRecordings(folder.toStdString());
    const auto packages = findUnfinishedPackages(folder.toStdString());
    if (movies.empty() && packages.empty()) {
        fmt::print(err, "✅ No unfinished recordings in {}\n", folder.toStdString());
        return 0;
    }
    std::vector<std::filesystem::path> recovered;
    int status = 0;
    for (const auto& movie : movies) {
        try {
            recovered.push_back(salvageRecording(movie).movie);
        } catch (const std::exception& error) {
            fmt::print(err, "❌ Could not recover {}\n", error.what());
            status = 1;
        }
    }
    for (const auto& package : packages) {
        try {
            recovered.push_back(salvageRecordingPackage(package));
        } catch (const std::exception& error) {
            fmt::print(err, "❌ Could not recover {}\n", error.what());
            status = 1;
        }
    }
    for (const auto& path : recovered)
        fmt::print(out, "{}\n", path.string());
    std::fflush(out);
    return status;
}

CliCommand recoverCommand() {
    return CliCommand{
        "recover", usage, "repair recordings a killed or crashed recorder left unfinished",
        [](const QStringList& arguments) { return runRecover(arguments, stdout, stderr); }};
}
