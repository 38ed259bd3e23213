#include "core/recording/RecordingOutputFinisher.h"

#include "core/async/Continuation.h"
#include "core/metadata/MetadataLocation.h"
#include "core/model/RecordingError.h"
#include "core/recording/ErrorDescription.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/ScreenCaptureEngine.h"
#include "core/recording/surfaces/RecordingResultOpener.h"
#include "core/settings/UserDefaults.h"
#include "core/support/Log.h"

#include <QFile>
#include <QFileInfo>

namespace {
const char* boolText(bool value) {
    return value ? "true" : "false";
}

QCoro::Task<QString> finishAudioPackage(AudioOnlyRecorder& recorder) {
    Continuation finished;
    auto url = std::make_shared<QString>();
    recorder.finishRecording([finished, url](QString result, std::exception_ptr error) mutable {
        *url = std::move(result);
        if (error)
            finished.fail(std::move(error));
        else
            finished.resume();
    });
    co_await finished;
    co_return QString(*url);
}
} // namespace

QCoro::Task<QString> RecordingOutputFinisher::finishOutputs(
    Outputs outputs, std::optional<RecordingConfiguration> configuration, double duration,
    QString unwrittenURL, std::function<bool()> isAlive) {
    if (outputs.audioOnlyRecorder)
        co_return co_await finishAudioPackage(*outputs.audioOnlyRecorder);

    if (outputs.layerRecordingManager) {
        const std::optional<SCStreamConfiguration> stream =
            outputs.screenEngine ? outputs.screenEngine->configuration() : std::nullopt;
        if (!stream)
            throw RecordingError::invalidConfiguration(
                QStringLiteral("Screen capture not configured"));
        const auto studio = configuration ? configuration->studioConfig : std::nullopt;
        PackageConfiguration package;
        package.hasAlphaChannel = studio && studio->enableAlphaChannel;
        package.hasSeparateLayers = true;
        package.resolution = Size{double(stream->width), double(stream->height)};
        package.frameRate = configuration ? configuration->frameRate : 30;
        package.duration = duration;
        if (const auto rect = outputs.screenEngine->captureRectInScreenSpace())
            package.contentOrigin = rect->origin;

        std::string layerError;
        try {
            const RecordingPackage saved =
                co_await outputs.layerRecordingManager->finalizeLayers(package);
            logLine("📦 Layer recording package saved to: {}", saved.packageURL.toStdString());
            co_return saved.packageURL;
        } catch (const std::exception& error) {
            layerError = describeError(error);
        }
        if (!isAlive())
            co_return QString();
        logLine("❌ Failed to finalize layer recording: {}", layerError);
        // The screen file alone is better than losing the recording.
        if (!outputs.mediaWriter)
            throw RecordingError::fileWriteError(QString::fromStdString(layerError));
        const QString url = co_await outputs.mediaWriter->finishWriting();
        logLine("⚠️ Saved screen video only due to layer recording error");
        co_return url;
    }

    if (outputs.mediaWriter)
        co_return co_await outputs.mediaWriter->finishWriting();
    co_return unwrittenURL;
}

QString RecordingOutputFinisher::metadataURL(const QString& resultURL,
                                             const std::optional<RecordingPackage>& package) {
    if (package)
        return package->metadataURL;
    return metadataLocations(resultURL).hiddenSibling;
}

void RecordingOutputFinisher::saveMetadata(MetadataRecorderEngine& recorder, double duration,
                                           const QString& url) {
    const MetadataCounts counts = recorder.currentCounts();
    logLine("📊 Metadata before stop:");
    logLine("   Cursor positions: {}", counts.cursorPositions);
    logLine("   Cursor clicks: {}", counts.cursorClicks);
    logLine("   Zoom events: {}", counts.zoomEvents);
    recorder.stopRecording(duration);
    try {
        recorder.saveMetadata(url);
        logLine("✅ Metadata saved successfully");
    } catch (const std::exception& error) {
        logLine("⚠️ Failed to save metadata: {}", describeError(error));
    }
}

void RecordingOutputFinisher::openResult(RecordingResultOpener& opener, const QString& url,
                                         const std::optional<RecordingPackage>& package,
                                         bool wasAudioOnly, bool hasStudioFeatures,
                                         bool shouldOpenTrimmer) {
    logLine("✅ Recording saved to: {}", url.toStdString());
    logLine("🎬 Opening UI: hasStudioFeatures={}, shouldOpenTrimmer={}", boolText(hasStudioFeatures),
            boolText(shouldOpenTrimmer));
    if (wasAudioOnly) {
        logLine("▶️ Opening in default app (audio-only)");
        opener.openURL(url);
        opener.activateFileViewerSelecting(url);
        return;
    }
    // Only audio-only decides: "trimAfterRecord" is the preview's setting, not this one's.
    const QString video = package ? package->screenVideoURL : url;
    logLine("✂️ Opening video trimmer for: {}", QFileInfo(video).fileName().toStdString());
    opener.openTrimmer(video);
}

RecordingOutputFinisher::Result RecordingOutputFinisher::describeResult(
    const QString& url, const std::optional<RecordingConfiguration>& configuration, bool hasLayers,
    bool hasMetadata, const UserDefaults& defaults) {
    Result result{url, configuration && configuration->mode.isAudioOnly(), hasLayers || hasMetadata,
                  false};
    logLine("🎬 Studio features check: hasStudioFeatures={}, layerManager={}, metadata={}",
            boolText(result.hasStudioFeatures), boolText(hasLayers), boolText(hasMetadata));
    const bool trimAfterRecord = defaults.trimAfterRecord();
    result.shouldOpenTrimmer = trimAfterRecord && !result.wasAudioOnly;
    logLine("🔍 Trimmer settings: trimAfterRecord={}, wasAudioOnly={}, shouldOpenTrimmer={}",
            boolText(trimAfterRecord), boolText(result.wasAudioOnly),
            boolText(result.shouldOpenTrimmer));
    return result;
}

QCoro::Task<std::optional<QString>>
RecordingOutputFinisher::salvage(Outputs outputs, MetadataRecorderEngine* metadata,
                                 double timelineSeconds, std::function<bool()> isAlive) {
    MediaWriterEngine* writer = outputs.mediaWriter;
    // Writers that never received a frame have nothing to keep.
    if (!writer || !writer->isWriting())
        co_return std::nullopt;
    if (LayerRecordingManager* layers = outputs.layerRecordingManager) {
        // A package keeps its metadata inside, where a finished one has it.
        const std::optional<RecordingPackage> package = layers->recordingPackage();
        if (!package)
            co_return std::nullopt;
        if (metadata)
            saveMetadata(*metadata, timelineSeconds, package->metadataURL);
        const std::optional<QString> kept = co_await layers->salvage();
        if (!isAlive())
            co_return std::nullopt;
        if (kept)
            logLine("💾 Saved what was recorded before the failure: {}", kept->toStdString());
        co_return kept;
    }
    const std::optional<QString> movie = writer->outputURL();
    if (!movie)
        co_return std::nullopt;
    // The metadata goes where a finished recording's would; the salvage cuts it to the length
    // of what it keeps and moves it beside the kept file.
    const QString metadataPath = metadataURL(*movie, std::nullopt);
    if (metadata)
        saveMetadata(*metadata, timelineSeconds, metadataPath);
    const std::optional<QString> kept = co_await writer->salvage();
    if (!isAlive())
        co_return std::nullopt;
    QFile::remove(metadataPath);
    if (kept)
        logLine("💾 Saved what was recorded before the failure: {}", kept->toStdString());
    co_return kept;
}

QString RecordingOutputFinisher::salvageNotice(const std::optional<QString>& salvagedURL) {
    if (!salvagedURL)
        return {};
    return QStringLiteral("\n\nWhat was recorded until then is saved as \"%1\".")
        .arg(QFileInfo(*salvagedURL).fileName());
}
