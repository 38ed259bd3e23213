#include "media/layers/MediaLayerRecordingManager.h"

#include "core/recording/ErrorDescription.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/support/Formatters.h"
#include "core/support/Log.h"
#include "media/layers/LayerRecordingError.h"
#include "media/layers/RecordingPackageManifest.h"
#include "media/layers/RecordingPackageSalvage.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>

namespace {

QString inFolder(const QString& folder, const char* name) {
    return QDir(folder).filePath(QString::fromLatin1(name));
}

std::string byteCount(const QString& path) {
    const QFileInfo info(path);
    if (!info.exists())
        return "unknown";
    return QLocale::c().formattedDataSize(info.size(), 1, QLocale::DataSizeSIFormat).toStdString();
}

// A file the manifest names, as it lies in the folder being read. It must have been written
// directly into the package's own folder and be a plain file there (not a link that leads out).
std::optional<QString> fileInPackage(const QString& listed, const QString& writtenFolder,
                                     const QString& folder) {
    const QFileInfo written(listed);
    if (QDir::cleanPath(written.path()) != QDir::cleanPath(writtenFolder))
        return std::nullopt;
    const QString name = written.fileName();
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return std::nullopt;
    return QDir(folder).filePath(name);
}

bool isPlainFile(const QString& path) {
    const QFileInfo info(path);
    return info.isFile() && !info.isSymLink();
}

} // namespace

MediaLayerRecordingManager::MediaLayerRecordingManager(WriterFactory makeWriter)
    : m_makeWriter(std::move(makeWriter)) {}

MediaLayerRecordingManager::~MediaLayerRecordingManager() = default;

RecordingPackage MediaLayerRecordingManager::createRecordingPackage(const QString& baseFolder) {
    const QDateTime now = QDateTime::currentDateTime();
    const QString folder = QDir(baseFolder)
                               .filePath(QStringLiteral("Recording-") +
                                         now.toString(QStringLiteral("yyyy-MM-dd-HH-mm-ss")));
    // Two packages in the same second share the folder, as the name allows; mkpath succeeds on
    // an existing one.
    if (!QDir().mkpath(folder))
        throw std::runtime_error("Could not create the folder " + folder.toStdString());

    RecordingPackage package;
    package.packageURL = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    package.screenVideoURL = inFolder(package.packageURL, ".screen.mov");
    package.cameraVideoURL = inFolder(package.packageURL, ".camera.mov");
    package.audioURL = inFolder(package.packageURL, ".audio.m4a");
    package.metadataURL = inFolder(package.packageURL, ".metadata.json");
    package.createdAt = now;
    package.configuration = PackageConfiguration{};
    package.configuration.hasSeparateLayers = true;
    package.configuration.frameRate = 0;
    m_package = package;
    logLine("📦 Created recording package at: {}", package.packageURL.toStdString());
    return package;
}

std::optional<QString> MediaLayerRecordingManager::fileURL(RecordingLayer layer) const {
    if (!m_package)
        return std::nullopt;
    switch (layer) {
    case RecordingLayer::screen:
        return m_package->screenVideoURL;
    case RecordingLayer::camera:
        return m_package->cameraVideoURL;
    case RecordingLayer::audio:
        return m_package->audioURL;
    case RecordingLayer::metadata:
        return m_package->metadataURL;
    }
    return std::nullopt;
}

std::unique_ptr<MediaWriterEngine>
MediaLayerRecordingManager::startWriter(const WriterConfiguration& config, RecordingLayer layer) {
    std::unique_ptr<MediaWriterEngine> writer = m_makeWriter();
    try {
        writer->configure(config);
        writer->startWriting();
    } catch (const std::exception& error) {
        throw LayerRecordingError::writerInitializationFailed(layer, describeError(error));
    }
    return writer;
}

void MediaLayerRecordingManager::startLayerRecording(
    const WriterConfiguration& screenConfig, const std::optional<WriterConfiguration>& cameraConfig,
    const WriterConfiguration::AudioSettings&) {
    // The audio travels inside the screen writer's configuration; the argument is kept for the
    // day the audio gets a file of its own.
    if (m_isRecording)
        throw LayerRecordingError::alreadyRecording();
    if (!m_package)
        throw LayerRecordingError::packageNotCreated();
    logLine("🎬 Starting layer recording...");
    m_screenWriter = startWriter(screenConfig, RecordingLayer::screen);
    logLine("✅ Screen writer initialized");
    if (cameraConfig) {
        m_cameraWriter = startWriter(*cameraConfig, RecordingLayer::camera);
        logLine("✅ Camera writer initialized");
    }
    m_isRecording = true;
    logLine("✅ Layer recording started");
}

QCoro::Task<RecordingPackage>
MediaLayerRecordingManager::finalizeLayers(PackageConfiguration configuration) {
    if (!m_package)
        throw LayerRecordingError::packageNotCreated();
    if (!m_isRecording)
        throw LayerRecordingError::notRecording();
    logLine("🏁 Finalizing layer recording...");

    // The screen layer first: it is what the package is for, and its failure ends the package.
    if (m_screenWriter) {
        const QString path = co_await m_screenWriter->finishWriting();
        logLine("✅ Screen layer finalized: {}", QFileInfo(path).fileName().toStdString());
    }
    if (m_cameraWriter) {
        if (!m_cameraWriter->sessionStartTimeValue()) {
            logLine("⚠️ Camera writer session was never started - no frames were captured");
            m_cameraWriter->cancel(); // removes the empty file
            if (m_package->cameraVideoURL)
                QFile::remove(*m_package->cameraVideoURL);
        } else {
            std::string failure;
            try {
                const QString path = co_await m_cameraWriter->finishWriting();
                logLine("✅ Camera layer finalized: {}", QFileInfo(path).fileName().toStdString());
            } catch (const std::exception& error) {
                failure = describeError(error);
            }
            if (!failure.empty())
                logLine("⚠️ Camera layer finalization failed: {}", failure);
        }
    }

    if (!QFileInfo::exists(m_package->screenVideoURL))
        throw LayerRecordingError::missingFile(RecordingLayer::screen);
    RecordingPackage package = *m_package;
    if (package.cameraVideoURL && !QFileInfo::exists(*package.cameraVideoURL))
        package.cameraVideoURL.reset();
    package.configuration = configuration;

    RecordingPackageManifest::save(package);
    logLine("✅ Package manifest saved");
    logSummary(package);
    m_isRecording = false;
    m_package = package;
    co_return package;
}

void MediaLayerRecordingManager::logSummary(const RecordingPackage& package) const {
    logLine("📦 Package finalized:");
    logLine("   Screen: {}", byteCount(package.screenVideoURL));
    if (package.cameraVideoURL)
        logLine("   Camera: {}", byteCount(*package.cameraVideoURL));
    logLine("   Duration: {}", formattedDuration(package.configuration.duration).toStdString());
}

QCoro::Task<std::optional<QString>> MediaLayerRecordingManager::salvage() {
    if (!m_package || !m_screenWriter)
        co_return std::nullopt;
    // Each layer is closed by its writer's own salvage into a "(Recovered)" file beside it.
    SalvagedLayers layers;
    if (const std::optional<QString> screen = co_await m_screenWriter->salvage())
        layers.screen = screen->toStdString();
    if (m_cameraWriter)
        if (const std::optional<QString> camera = co_await m_cameraWriter->salvage())
            layers.camera = camera->toStdString();
    if (!layers.screen)
        co_return std::nullopt;
    m_salvaged = true;
    try {
        const std::filesystem::path kept =
            settleSalvagedPackage(m_package->packageURL.toStdString(), layers);
        m_isRecording = false;
        co_return QString::fromStdString(kept.string());
    } catch (const std::exception& error) {
        logLine("⚠️ The package could not be made whole: {}", error.what());
        co_return std::nullopt;
    }
}

void MediaLayerRecordingManager::cancel() {
    if (m_salvaged) {
        m_package.reset();
        m_isRecording = false;
        return;
    }
    if (m_screenWriter)
        m_screenWriter->cancel();
    if (m_cameraWriter)
        m_cameraWriter->cancel();
    if (m_package)
        QDir(m_package->packageURL).removeRecursively();
    m_package.reset();
    m_screenWriter.reset();
    m_cameraWriter.reset();
    m_isRecording = false;
    logLine("🗑️ Cancelled and cleaned up recording package");
}

RecordingPackage MediaLayerRecordingManager::loadPackage(const QString& packageFolder) {
    const QString folder = QDir::cleanPath(QFileInfo(packageFolder).absoluteFilePath());
    QString manifestPath = inFolder(folder, RecordingPackageManifest::fileName);
    if (!isPlainFile(manifestPath))
        manifestPath = inFolder(folder, RecordingPackageManifest::legacyFileName);
    if (!isPlainFile(manifestPath))
        throw LayerRecordingError::packageNotFound(folder);

    QFile file(manifestPath);
    if (!file.open(QIODevice::ReadOnly))
        throw ManifestError("Could not read " + manifestPath.toStdString() + ": " +
                            file.errorString().toStdString());
    RecordingPackage package;
    try {
        package = RecordingPackageManifest::decode(file.readAll().toStdString());
    } catch (const ManifestError& error) {
        throw ManifestError("The manifest " + manifestPath.toStdString() +
                            " is damaged: " + error.what());
    }

    const QString writtenFolder = package.packageURL;
    auto settle = [&](const QString& listed, RecordingLayer layer, bool mustExist) {
        const std::optional<QString> local = fileInPackage(listed, writtenFolder, folder);
        if (!local || (mustExist && !isPlainFile(*local)))
            throw LayerRecordingError::missingFile(layer);
        return *local;
    };
    package.packageURL = folder;
    package.screenVideoURL = settle(package.screenVideoURL, RecordingLayer::screen, true);
    if (package.cameraVideoURL)
        package.cameraVideoURL = settle(*package.cameraVideoURL, RecordingLayer::camera, true);
    // Audio is reserved and metadata may be missing after a crash; both may be absent, but
    // never elsewhere.
    package.audioURL = settle(package.audioURL, RecordingLayer::audio, false);
    package.metadataURL = settle(package.metadataURL, RecordingLayer::metadata, false);
    return package;
}
