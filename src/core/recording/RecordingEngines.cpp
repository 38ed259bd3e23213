#include "core/recording/RecordingEngines.h"

#include "core/recording/RecordingEngineSetup.h"
#include "core/recording/RecordingOutputFinisher.h"
#include "core/recording/StreamRecovery.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/recording/engines/ScreenCaptureEngine.h"
#include "core/recording/engines/ZoomRenderer.h"
#include "core/recording/engines/iOSDeviceCaptureEngine.h"

#include <QCoreApplication>

namespace {
// Engines call from their own threads; their owner lives on the main thread.
void onMainThread(std::function<void()> work) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(work), Qt::QueuedConnection);
}
} // namespace

RecordingEngines::RecordingEngines(RecordingEngineFactory& factory,
                                   CameraPrewarmer::DeviceResolver resolve)
    : m_factory(factory), m_camera(factory, std::move(resolve)) {}

RecordingEngines::~RecordingEngines() = default;

void RecordingEngines::adopt(RecordingPreparation::Result result) {
    // Engines go first: the old ones may still point at the old writers.
    m_screenEngine = std::move(result.screenEngine);
    m_audioEngine = std::move(result.audioEngine);
    if (!result.usesPrewarmedCamera)
        m_camera.replace(std::move(result.cameraEngine));
    m_audioOnlyRecorder = std::move(result.audioOnlyRecorder);
    m_screenWriter = nullptr;
    m_layerRecordingManager = std::move(result.layerRecordingManager);
    m_ownedMediaWriter = std::move(result.mediaWriter);
    m_screenWriter = m_ownedMediaWriter        ? m_ownedMediaWriter.get()
                     : m_layerRecordingManager ? m_layerRecordingManager->getScreenWriter()
                                               : nullptr;
    m_shouldUseWindowPump = result.shouldUseWindowPump;
    m_pumpFrameRate = result.pumpFrameRate;
}

void RecordingEngines::connect(const RecordingMode& mode,
                               const RecordingConfiguration& configuration,
                               const std::atomic<bool>& isPaused, StreamRecovery& recovery,
                               Events events) {
    if (mode.isAudioOnly()) {
        if (m_audioEngine && m_audioOnlyRecorder)
            RecordingEngineSetup::installAudioOnlyHandlers(*m_audioEngine, *m_audioOnlyRecorder);
        return;
    }
    m_zoomRenderer.reset();
    if (configuration.studioConfig && configuration.studioConfig->enableClickToZoom)
        m_zoomRenderer = RecordingEngineSetup::makeZoomRenderer(
            m_factory, m_screenEngine ? m_screenEngine->captureRectInScreenSpace() : std::nullopt);
    installFramePath(configuration, isPaused, recovery, events);
    m_metadataRecorder = RecordingEngineSetup::makeMetadataRecorder(
        m_factory, configuration, m_screenEngine ? m_screenEngine->configuration() : std::nullopt);
}

void RecordingEngines::installFramePath(const RecordingConfiguration& configuration,
                                        const std::atomic<bool>& isPaused, StreamRecovery& recovery,
                                        const Events& events) {
    RecordingFramePath::Hooks hooks;
    hooks.camera = m_camera.engine();
    hooks.markStartupPhase = [report = events.startupPhase](const QString& phase) {
        onMainThread([report, phase] { report(phase); });
    };
    hooks.firstVideoFrameAppended = [report = events.firstVideoFrameAppended] {
        onMainThread(report);
    };
    StreamRecovery* restarts = &recovery;
    hooks.streamRestarted = [restarts, report = events.outageEnded](MediaTime firstPTS,
                                                                    MediaTime frameDuration,
                                                                    MediaTime lastVideoDuration) {
        if (restarts->applyStreamRestartOffsetIfNeeded(firstPTS, frameDuration, lastVideoDuration))
            onMainThread(report);
    };
    hooks.appendFailed = [restarts, report = events.writerFailed] {
        if (restarts->claimWriterFailure())
            onMainThread(report);
    };
    m_framePath = std::make_shared<RecordingFramePath>(
        RecordingFramePath::Flags{isPaused, recovery.isInProgress(),
                                  recovery.isAwaitingRestartFirstFrame(), m_screenWriter},
        std::move(hooks), configuration.frameRate,
        RecordingFramePath::Pump{m_shouldUseWindowPump, m_pumpFrameRate, false,
                                 [factory = &m_factory](const VideoFrame& frame) {
                                     return factory->quickFrameChecksum(frame);
                                 },
                                 m_zoomRenderer});
    RecordingEngineSetup::installFramePath(m_framePath, m_screenEngine.get(), m_audioEngine.get());
    if (m_screenEngine)
        m_screenEngine->setErrorHandler(
            [report = events.streamInterrupted](const StreamError& error) {
                onMainThread([report, error] { report(error); });
            });
}

QCoro::Task<void> RecordingEngines::startCapture(std::function<void(const QString&)> markPhase,
                                                 std::function<bool()> isAlive) {
    return RecordingEngineSetup::startCaptureEngines(
        {m_camera.engine(), m_screenEngine.get(), m_audioEngine.get(), m_audioOnlyRecorder.get()},
        std::move(markPhase), std::move(isAlive));
}

QCoro::Task<void> RecordingEngines::stopCapture(std::function<bool()> isAlive) {
    if (m_screenEngine) {
        try {
            co_await m_screenEngine->stopCapture();
        } catch (const std::exception&) {
            // A stream that fails to stop has stopped delivering all the same.
        }
        if (!isAlive())
            co_return;
    }
    if (m_audioEngine)
        m_audioEngine->stopCapture();
    if (m_camera.engine())
        m_camera.engine()->stopCapture();
}

QCoro::Task<QString>
RecordingEngines::finishOutputs(std::optional<RecordingConfiguration> configuration,
                                double duration, QString unwrittenURL,
                                std::function<bool()> isAlive) {
    return RecordingOutputFinisher::finishOutputs(
        {m_audioOnlyRecorder.get(), m_layerRecordingManager.get(), m_screenWriter.load(),
         m_screenEngine.get()},
        std::move(configuration), duration, std::move(unwrittenURL), std::move(isAlive));
}

QCoro::Task<std::optional<QString>> RecordingEngines::salvage(double timelineSeconds,
                                                              std::function<bool()> isAlive) {
    return RecordingOutputFinisher::salvage(
        {nullptr, m_layerRecordingManager.get(), m_screenWriter.load(), nullptr},
        m_metadataRecorder.get(), timelineSeconds, std::move(isAlive));
}

void RecordingEngines::discardOutputs() {
    if (m_layerRecordingManager)
        releaseLayerRecording();
    else if (MediaWriterEngine* writer = m_screenWriter.load())
        writer->cancel();
    m_metadataRecorder.reset();
}

void RecordingEngines::releaseLayerRecording() {
    m_layerRecordingManager->cancel();
    // The layer writers die with their manager; nothing may keep pointing at them.
    if (!m_ownedMediaWriter)
        m_screenWriter = nullptr;
    m_layerRecordingManager.reset();
}

std::optional<RecordingPackage> RecordingEngines::recordingPackage() const {
    return m_layerRecordingManager ? m_layerRecordingManager->recordingPackage() : std::nullopt;
}

std::optional<double> RecordingEngines::videoTimelineSeconds() const {
    const MediaWriterEngine* writer = m_screenWriter.load();
    return writer ? RecordingFramePath::videoTimelineSeconds(m_framePath.get(), *writer)
                  : std::nullopt;
}

void RecordingEngines::setDeviceEngine(std::unique_ptr<iOSDeviceCaptureEngine> engine) {
    m_deviceEngine = std::move(engine);
}

void RecordingEngines::cleanUpDeviceEngine() {
    if (m_deviceEngine)
        m_deviceEngine->cleanup();
    m_deviceEngine.reset();
}
