#include "cli/MixCommand.h"

#include "media/AudioPackageMixer.h"

#include <fmt/format.h>

#include <cmath>

#include <string_view>

namespace {

constexpr std::string_view usage =
    "mix PACKAGE [--sys-volume V] [--mic-volume V] [--normalize] [--output FILE] [--mp3]";

int badInput(FILE* err, const std::string& message) {
    fmt::print(err, "❌ {}\nusage: tavelquiston-cli {}\n", message, usage);
    return 2;
}

} // namespace

int runMix(const QStringList& arguments, FILE* out, FILE* err) {
    AudioMixOptions options;
    std::optional<QString> package;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const bool takesValue =
            argument == "--sys-volume" || argument == "--mic-volume" || argument == "--output";
        if (takesValue && i + 1 >= arguments.size())
            return badInput(err, fmt::format("{} needs a value", argument.toStdString()));
        if (argument == "--sys-volume" || argument == "--mic-volume") {
            const QString& text = arguments[++i];
            bool ok = false;
            const float volume = text.toFloat(&ok);
            // Volumes are gains: 0 mutes, 1 leaves the source as recorded, above 1 amplifies.
            if (!ok || !std::isfinite(volume) || volume < 0 || volume > 4)
                return badInput(err, fmt::format("{} \"{}\" is not a volume from 0 to 4",
                                                 argument.toStdString(), text.toStdString()));
            (argument == "--sys-volume" ? options.sysVolume : options.micVolume) = volume;
        } else if (argument == "--output") {
            options.output = arguments[++i].toStdString();
        } else if (argument == "--normalize") {
            options.normalize = true;
        } else if (argument == "--mp3") {
            options.mp3 = true;
        } else if (argument.startsWith('-') || package) {
            return badInput(err, fmt::format("Unexpected argument \"{}\"", argument.toStdString()));
        } else {
            package = argument;
        }
    }
    if (!package)
        return badInput(err, "No audio package given");

    try {
        const AudioPackageMixer mixer(package->toStdString());
        const AudioMixResult result = mixer.mix(options);
        if (result.note)
            fmt::print(err, "⚠️ {}\n", *result.note);
        fmt::print(err, "✅ Mixed {:.2f} s of audio into {}\n", result.seconds,
                   result.output.string());
        fmt::print(out, "{}\n", result.output.string());
        std::fflush(out);
        return 0;
    } catch (const AudioPackageError& error) {
        fmt::print(err, "❌ {}\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        fmt::print(err, "❌ Could not mix the audio package: {}\n", error.what());
        return 1;
    }
}

CliCommand mixCommand() {
    return CliCommand{
        "mix", usage, "mix an audio package's sources down to one audio file",
        [](const QStringList& arguments) { return runMix(arguments, stdout, stderr); }};
}
