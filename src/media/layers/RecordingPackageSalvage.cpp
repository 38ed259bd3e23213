#include "media/layers/RecordingPackageSalvage.h"

#include "core/metadata/MetadataFile.h"
#include "core/support/Log.h"
#include "media/RecordingSalvage.h"
#include "media/UnfinishedRecordingMarker.h"
#include "media/layers/RecordingPackageManifest.h"

#include <QDateTime>
#include <QDir>

#include <algorithm>
#include <cstdio>

namespace {

constexpr const char* screenName = ".screen.mov";
constexpr const char* cameraName = ".camera.mov";
constexpr const char* metadataName = ".metadata.json";

std::optional<RecordingMetadata> readIfThere(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error))
        return std::nullopt;
    try {
        return readMetadataFile(QString::fromStdString(path.string()));
    } catch (const std::exception& unreadable) {
        logLine("⚠️ Metadata {} unreadable: {}", path.string(), unreadable.what());
        return std::nullopt;
    }
}

// Puts a salvaged layer back under its layer's name; the metadata its salvage wrote beside it
// is returned and removed (the package keeps one, for all layers).
std::optional<RecordingMetadata> restoreLayer(const std::filesystem::path& salvaged,
                                              const std::filesystem::path& layer) {
    const std::filesystem::path beside =
        salvaged.parent_path() / ("." + salvaged.stem().string() + ".metadata.json");
    std::optional<RecordingMetadata> metadata = readIfThere(beside);
    std::error_code ignored;
    std::filesystem::remove(beside, ignored);
    std::filesystem::rename(salvaged, layer);
    return metadata;
}

// A folder of the same name with " (Recovered)" added, numbered when taken; made by renaming.
std::filesystem::path renameRecovered(const std::filesystem::path& folder) {
    const std::string base = folder.filename().string() + " (Recovered)";
    for (int number = 1;; ++number) {
        const std::filesystem::path target =
            folder.parent_path() /
            (number == 1 ? base : base + " (" + std::to_string(number) + ")");
        std::error_code error;
        if (std::filesystem::exists(target, error))
            continue;
        std::filesystem::rename(folder, target, error);
        if (!error)
            return target;
        if (number > 1000)
            throw RecordingSalvageError(folder.string() + ": " + error.message());
    }
}

QDateTime createdAt(const std::filesystem::path& folder) {
    // "Recording-yyyy-MM-dd-HH-mm-ss", as the package was named when it was made.
    const QString name = QString::fromStdString(folder.filename().string());
    const QDateTime named = QDateTime::fromString(name.mid(QStringLiteral("Recording-").size(), 19),
                                                  QStringLiteral("yyyy-MM-dd-HH-mm-ss"));
    return named.isValid() ? named : QDateTime::currentDateTime();
}

} // namespace

std::filesystem::path settleSalvagedPackage(const std::filesystem::path& folder,
                                            const SalvagedLayers& layers,
                                            std::optional<RecordingMetadata> metadata) {
    if (!layers.screen)
        throw RecordingSalvageError(folder.string() + ": the screen layer kept nothing");
    std::optional<RecordingMetadata> found = restoreLayer(*layers.screen, folder / screenName);
    if (layers.camera)
        restoreLayer(*layers.camera, folder / cameraName);
    // The salvage cut its metadata to the screen layer's length, which is the package's.
    const double duration = found ? found->duration : 0.0;
    if (!metadata)
        metadata = readIfThere(folder / metadataName);
    if (!metadata)
        metadata = found;
    RecordingMetadata kept = cutMetadataTo(metadata.value_or(RecordingMetadata{}), duration);
    if (found && kept.resolution.width <= 0)
        kept.resolution = found->resolution;
    if (found && kept.frameRate <= 0)
        kept.frameRate = found->frameRate;

    const QDateTime created = createdAt(folder);
    const std::filesystem::path recovered = renameRecovered(folder);
    const QString inside = QString::fromStdString(recovered.string());
    try {
        writeMetadataFile(kept, QDir(inside).filePath(QString::fromLatin1(metadataName)));
    } catch (const std::exception& unwritable) {
        logLine("⚠️ Failed to save metadata: {}", unwritable.what());
    }
    RecordingPackage package;
    package.packageURL = inside;
    package.screenVideoURL = QDir(inside).filePath(QString::fromLatin1(screenName));
    std::error_code error;
    if (std::filesystem::exists(recovered / cameraName, error))
        package.cameraVideoURL = QDir(inside).filePath(QString::fromLatin1(cameraName));
    package.audioURL = QDir(inside).filePath(QStringLiteral(".audio.m4a"));
    package.metadataURL = QDir(inside).filePath(QString::fromLatin1(metadataName));
    package.createdAt = created;
    package.configuration.hasSeparateLayers = true;
    package.configuration.resolution = kept.resolution;
    package.configuration.frameRate = kept.frameRate;
    package.configuration.duration = duration;
    RecordingPackageManifest::save(package);
    logLine("✅ Recovered package {} ({:.1f} s)", recovered.string(), duration);
    return recovered;
}

std::filesystem::path salvageRecordingPackage(const std::filesystem::path& folder) {
    SalvagedLayers layers;
    const auto salvageLayer = [&](const char* name) -> std::optional<std::filesystem::path> {
        const std::filesystem::path layer = folder / name;
        std::error_code error;
        if (!std::filesystem::exists(UnfinishedRecordingMarker::markerPath(layer), error))
            return std::nullopt;
        return salvageRecording(layer).movie;
    };
    layers.screen = salvageLayer(screenName);
    try {
        layers.camera = salvageLayer(cameraName);
    } catch (const std::exception& nothing) {
        // A camera that never delivered a frame leaves a layer without one: it goes.
        logLine("⚠️ The camera layer kept nothing: {}", nothing.what());
        std::error_code ignored;
        std::filesystem::remove(folder / cameraName, ignored);
        UnfinishedRecordingMarker::removeFor(folder / cameraName);
    }
    return settleSalvagedPackage(folder, layers);
}

std::vector<std::filesystem::path> findUnfinishedPackages(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> packages;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (!entry.is_directory())
            continue;
        for (const std::filesystem::path& movie :
             UnfinishedRecordingMarker::abandonedMovies(entry.path()))
            if (movie.filename() == screenName)
                packages.push_back(entry.path());
    }
    std::sort(packages.begin(), packages.end());
    return packages;
}
