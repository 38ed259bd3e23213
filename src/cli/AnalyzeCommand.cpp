#include "cli/AnalyzeCommand.h"

#include "cli/PathExport.h"
#include "core/analysis/AttentionAnalyzer.h"
#include "core/metadata/MetadataFile.h"
#include "core/metadata/MetadataJson.h"
#include "core/metadata/MetadataLocation.h"
#include "core/metadata/ZoomMigration.h"

#include <QFileInfo>

#include <fmt/format.h>

#include <optional>

namespace {

constexpr std::string_view usage =
    "analyze <video-or-metadata.json> [--explain] [--camera-path FPS] [--cursor-path FPS]";

// A metadata file given directly, a package folder, or a video with its metadata beside it.
std::optional<QString> metadataPathFor(const QString& input) {
    const QFileInfo info(input);
    if (info.isDir()) {
        const QString inside = packageMetadataPath(input);
        return QFileInfo(inside).isFile() ? std::optional(inside) : std::nullopt;
    }
    if (info.fileName().endsWith(QStringLiteral(".json"), Qt::CaseInsensitive))
        return input;
    return locateMetadataFile(input);
}

void explain(const RecordingMetadata& metadata, FILE* err) {
    const AttentionAnalyzerInput input{.duration = metadata.duration,
                                       .zoomEvents = metadata.zoomEvents,
                                       .cursorClicks = metadata.cursorClicks,
                                       .cursorPositions = metadata.cursorPositions};
    for (const AttentionCluster& c : AttentionAnalyzer::analyze(input).clusters) {
        fmt::print(err, "{:.2f}s - {:.2f}s  focus ({:.3f}, {:.3f})  {}  confidence {:.2f}  {}\n",
                   c.startTime, c.endTime, c.focus.x, c.focus.y, rawValue(c.kind).toStdString(),
                   c.confidence, c.reason.toStdString());
    }
}

} // namespace

int runAnalyze(const QStringList& givenArguments, FILE* out, FILE* err) {
    QStringList arguments = givenArguments;
    const std::optional<PathExportRequest> paths = extractPathOptions(arguments, err);
    if (!paths)
        return 2;
    bool wantsExplanation = false;
    QString input;
    for (const QString& argument : arguments) {
        if (argument == QLatin1String("--explain")) {
            wantsExplanation = true;
        } else if (argument.startsWith(QLatin1Char('-')) || !input.isEmpty()) {
            fmt::print(err, "❌ Unexpected argument \"{}\"\nusage: tavelquiston-cli {}\n",
                       argument.toStdString(), usage);
            return 2;
        } else {
            input = argument;
        }
    }
    if (input.isEmpty()) {
        fmt::print(err, "usage: tavelquiston-cli {}\n", usage);
        return 2;
    }
    if (!QFileInfo::exists(input)) {
        fmt::print(err, "❌ {}: no such file\n", input.toStdString());
        return 2;
    }
    const std::optional<QString> path = metadataPathFor(input);
    if (!path) {
        const MetadataLocations looked = metadataLocations(input);
        fmt::print(err, "❌ {}: no metadata beside it (none of {}, {}, {})\n", input.toStdString(),
                   QFileInfo(looked.package).fileName().toStdString(),
                   QFileInfo(looked.sibling).fileName().toStdString(),
                   QFileInfo(looked.hiddenSibling).fileName().toStdString());
        return 2;
    }

    RecordingMetadata metadata;
    try {
        metadata = readMetadataFile(*path);
    } catch (const MetadataFileError& error) {
        fmt::print(err, "❌ {}\n", error.what());
        return 2;
    } catch (const MetadataDecodingError& error) {
        fmt::print(err, "❌ {}: {}\n", path->toStdString(), error.what());
        return 2;
    }

    const RecordingMetadata migrated = migrateZoomMetadata(std::move(metadata));
    if (paths->any())
        return printPaths(migrated, *paths, out);
    std::string text;
    try {
        text = encodeMetadata(migrated);
    } catch (const MetadataEncodingError& error) {
        fmt::print(err, "❌ {}: {}\n", path->toStdString(), error.what());
        return 1;
    }
    fmt::print(out, "{}\n", text);
    std::fflush(out);
    if (wantsExplanation)
        explain(migrated, err);
    return 0;
}

CliCommand analyzeCommand() {
    return {"analyze", usage, "print a recording's metadata after migration, with automatic zooms",
            [](const QStringList& arguments) { return runAnalyze(arguments, stdout, stderr); }};
}
