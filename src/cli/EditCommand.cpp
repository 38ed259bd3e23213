#include "cli/EditCommand.h"

#include "exporter/VideoTrimmerViewModel.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace {
constexpr std::string_view usage = "edit FILE";
constexpr const char* desktopProgram = "tavelquiston";
} // namespace

std::optional<std::filesystem::path> desktopProgramPath() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return std::nullopt;
    for (const std::filesystem::path& candidate :
         {self.parent_path() / desktopProgram,
          self.parent_path().parent_path() / "app" / desktopProgram}) {
        if (::access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return std::nullopt;
}

int runEdit(const QStringList& arguments, FILE* err) {
    if (arguments.size() != 1 || arguments[0].startsWith(QLatin1Char('-'))) {
        fmt::print(err, "usage: tavelquiston-cli {}\n", usage);
        return 2;
    }
    // The same check the trimmer makes, so that a bad file is reported here and not in a dialog.
    {
        VideoTrimmerViewModel session;
        if (const std::optional<QString> failure = session.loadVideo(arguments[0])) {
            fmt::print(err, "❌ {}\n", failure->toStdString());
            return 2;
        }
    }
    const std::string file = arguments[0].toStdString();
    const std::optional<std::filesystem::path> program = desktopProgramPath();
    const std::string name = program ? program->string() : desktopProgram;
    char* argv[] = {const_cast<char*>(name.c_str()), const_cast<char*>(file.c_str()), nullptr};
    std::fflush(stdout);
    std::fflush(err);
    ::execvp(name.c_str(), argv);
    fmt::print(err, "❌ Cannot start the editor ({}): {}\n", name, std::strerror(errno));
    return 1;
}

CliCommand editCommand() {
    return {"edit", usage, "open a recording in the trimmer window",
            [](const QStringList& arguments) { return runEdit(arguments, stderr); }};
}
