#include "core/recording/RecordingShutdown.h"

#include "core/model/RecordingError.h"
#include "core/recording/CursorSampler.h"
#include "core/recording/RecordingEngines.h"
#include "core/recording/RecordingFramePath.h"
#include "core/recording/RecordingSurfaces.h"
#include "core/recording/RecordingTimers.h"
#include "core/recording/StreamRecovery.h"
#include "core/recording/SystemCursorVisibility.h"
#include "core/recording/SystemEventResponder.h"
#include "core/support/ErrorReporter.h"

QCoro::Task<QString> RecordingShutdown::finish(std::optional<RecordingConfiguration> configuration,
                                               double duration,
                                               std::function<QString()> unwrittenURL,
                                               std::function<bool()> isAlive) {
    m_parts.timers.invalidateAll();
    if (RecordingFramePath* framePath = m_parts.engines.framePath())
        framePath->stopPump();

    // Made before the co_await: g++ 12 destroys an awaited expression's temporaries twice.
    QCoro::Task<void> stopping = stopMonitoringAndCapture(isAlive);
    co_await stopping;
    if (!isAlive())
        co_return QString();

    QCoro::Task<QString> finishing =
        m_parts.engines.finishOutputs(std::move(configuration), duration, unwrittenURL(), isAlive);
    const QString resultURL = co_await finishing;
    if (!isAlive())
        co_return QString();
    if (MetadataRecorderEngine* metadata = m_parts.engines.metadataRecorder())
        RecordingOutputFinisher::saveMetadata(
            *metadata, duration,
            RecordingOutputFinisher::metadataURL(resultURL, m_parts.engines.recordingPackage()));
    co_return resultURL;
}

RecordingOutputFinisher::Result
RecordingShutdown::describeResult(const QString& url,
                                  const std::optional<RecordingConfiguration>& configuration,
                                  const UserDefaults& defaults) const {
    return RecordingOutputFinisher::describeResult(
        url, configuration, bool(m_parts.engines.layerRecordingManager()),
        bool(m_parts.engines.metadataRecorder()), defaults);
}

void RecordingShutdown::openResult(const RecordingOutputFinisher::Result& result) {
    RecordingOutputFinisher::openResult(m_parts.resultOpener, result.url,
                                        m_parts.engines.recordingPackage(), result.wasAudioOnly,
                                        result.hasStudioFeatures, result.shouldOpenTrimmer);
}

QCoro::Task<void> RecordingShutdown::releaseAfterError(bool allowSleep,
                                                       std::function<bool()> isAlive) {
    m_parts.timers.invalidateAll();
    m_parts.systemEvents.remove();
    m_parts.recovery.reset();
    if (RecordingFramePath* framePath = m_parts.engines.framePath())
        framePath->stopPump();
    m_parts.surfaces.hide(allowSleep);

    QCoro::Task<void> stopping = stopMonitoringAndCapture(isAlive);
    co_await stopping;
    if (!isAlive())
        co_return;

    // What the writer wrote up to the failure is kept, cut where the video's time line ended.
    m_salvagedURL.reset();
    QCoro::Task<std::optional<QString>> salvaging =
        m_parts.engines.salvage(m_parts.engines.videoTimelineSeconds().value_or(0.0), isAlive);
    std::optional<QString> kept = co_await salvaging;
    if (!isAlive())
        co_return;
    m_salvagedURL = std::move(kept);
    discardOutputs();
}

void RecordingShutdown::discardOutputs() {
    m_parts.engines.discardOutputs();
    m_parts.cursorSampler.smartClickZoom().resetSmartClickZoomState();
}

void RecordingShutdown::alertStreamInterrupted() const {
    ErrorReporter::shared().showAlert(
        QStringLiteral("Recording Interrupted"),
        QStringLiteral(
            "The screen capture was interrupted unexpectedly and could not be restarted.") +
            RecordingOutputFinisher::salvageNotice(m_salvagedURL));
}

void RecordingShutdown::alertWriterFailed(const RecordingError& error) const {
    if (m_salvagedURL)
        ErrorReporter::shared().showAlert(
            QStringLiteral("Recording Failed"),
            error.errorDescription() + RecordingOutputFinisher::salvageNotice(m_salvagedURL));
    else
        ErrorReporter::shared().reportAndAlert(error, QStringLiteral("Asset writer failed"),
                                               QStringLiteral("Recording Failed"));
}

QCoro::Task<void> RecordingShutdown::stopMonitoringAndCapture(std::function<bool()> isAlive) {
    m_parts.cursorSampler.stopMonitoring();
    m_parts.cursorVisibility.showCursor();
    QCoro::Task<void> stopping = m_parts.engines.stopCapture(std::move(isAlive));
    co_await stopping;
}
