#include "core/recording/RecordingEngines.h"

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
#include "core/support/Formatters.h"
#include "core/support/Log.h"

#include <QCoreApplication>

namespace {
const char* boolText(bool value) {
    return value ? "true" : "false";
}

// System audio and microphone go straight to the recorder; a buffer it refuses is dropped,
// because audio threads must never see an exception.
void installAudioOnlyHandlers(AudioCaptureEngine& engine, AudioOnlyRecorder& recorder) {
    AudioOnlyRecorder* target = &recorder;
    engine.setSystemAudioHandler(
        [target](const AudioBufferHandle& buffer, const AudioSampleTiming&) {
            if (!buffer)
                return;
            try {
                target->appendSystemAudioBuffer(*buffer);
            } catch (...) {
            }
        });
    engine.setMicrophoneAudioHandler(
        [target](const AudioBufferHandle& buffer, const AudioSampleTiming&) {
            if (!buffer)
                return;
            try {
                target->appendMicrophoneBuffer(*buffer);
            } catch (...) {
            }
        });
}

// Screen frames, system audio and the microphone go through the frame path; the handlers share
// it, so it lives as long as the engine that calls them.
void connectFramePath(const std::shared_ptr<RecordingFramePath>& path, ScreenCaptureEngine* screen,
                      AudioCaptureEngine* audio) {
    if (screen) {
        screen->setFrameHandler(
            [path](const VideoFrameHandle& frame, const VideoSampleTiming& timing) {
                path->handleVideoFrame(frame, timing);
            });
        screen->setAudioHandler(
            [path](const AudioBufferHandle& buffer, const AudioSampleTiming& timing) {
                path->handleSystemAudio(buffer, timing);
            });
    }
    if (audio)
        audio->setMicrophoneAudioHandler(
            [path](const AudioBufferHandle& buffer, const AudioSampleTiming& timing) {
                path->handleMicrophoneAudio(buffer, timing);
            });
}

// A live zoom renderer for click-to-zoom, fitted to the captured rectangle when known.
std::unique_ptr<ZoomRenderer> makeZoomRenderer(RecordingEngineFactory& factory,
                                               std::optional<Rect> captureRect) {
    auto renderer = factory.makeZoomRenderer();
    if (captureRect && *captureRect != Rect()) {
        logLine("🔎 RecordingCoordinator: ZoomRenderer captureRect size={}x{} origin=({},{})",
                formatDouble(captureRect->size.width), formatDouble(captureRect->size.height),
                formatDouble(captureRect->origin.x), formatDouble(captureRect->origin.y));
        renderer->setCaptureFrame(captureRect->size, captureRect->origin);
    }
    renderer->setClickZoom(true);
    renderer->setFollowCursor(true);
    renderer->setHUDEnabled(false);
    renderer->setHUDIncludeInRecording(false);
    renderer->setDebugEnabled(false);
    return renderer;
}

// Every video recording collects metadata, at the stream's size (0 x 0 without a stream).
std::unique_ptr<MetadataRecorderEngine>
makeMetadataRecorder(RecordingEngineFactory& factory, const RecordingConfiguration& configuration,
                     std::optional<SCStreamConfiguration> stream) {
    const auto& studio = configuration.studioConfig;
    logLine("🔍 Checking Studio configuration...");
    logLine("   studioConfig: {}", studio ? "present" : "absent");
    if (studio)
        logLine("   Click-to-Zoom: {}, Separate Layers: {}, Alpha Channel: {}",
                boolText(studio->enableClickToZoom), boolText(studio->enableSeparateLayers),
                boolText(studio->enableAlphaChannel));
    const Size size = stream ? Size{double(stream->width), double(stream->height)} : Size{};
    auto recorder = factory.makeMetadataRecorder(size, configuration.frameRate);
    logLine("✅ MetadataRecorder initialized for cursor position sampling");
    return recorder;
}

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
            installAudioOnlyHandlers(*m_audioEngine, *m_audioOnlyRecorder);
        return;
    }
    m_zoomRenderer.reset();
    if (configuration.studioConfig && configuration.studioConfig->enableClickToZoom)
        m_zoomRenderer = makeZoomRenderer(
            m_factory, m_screenEngine ? m_screenEngine->captureRectInScreenSpace() : std::nullopt);
    installFramePath(configuration, isPaused, recovery, events);
    m_metadataRecorder = makeMetadataRecorder(
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
    connectFramePath(m_framePath, m_screenEngine.get(), m_audioEngine.get());
    if (m_screenEngine)
        m_screenEngine->setErrorHandler(
            [report = events.streamInterrupted](const StreamError& error) {
                onMainThread([report, error] { report(error); });
            });
}

QCoro::Task<void> RecordingEngines::startCapture(std::function<void(const QString&)> markPhase,
                                                 std::function<bool()> isAlive) {
    if (CameraCaptureEngine* camera = m_camera.engine()) {
        markPhase(QStringLiteral("cameraCapture.start.begin"));
        camera->startCapture();
        markPhase(QStringLiteral("cameraCapture.start.end"));
    }
    if (m_screenEngine) {
        logLine("🎥 Starting screen capture...");
        markPhase(QStringLiteral("screenCapture.start.begin"));
        co_await m_screenEngine->startCapture();
        // When the owner went while the stream started, so did these engines.
        if (!isAlive())
            co_return;
        markPhase(QStringLiteral("screenCapture.start.end"));
        logLine("✅ Screen capture started");
    }
    if (m_audioEngine) {
        logLine("🎤 Starting audio capture...");
        markPhase(QStringLiteral("audioCapture.start.begin"));
        m_audioEngine->startCapture();
        markPhase(QStringLiteral("audioCapture.start.end"));
        logLine("✅ Audio capture started");
    }
    if (m_audioOnlyRecorder)
        m_audioOnlyRecorder->startRecording();
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

void RecordingEngines::addTimeOffset(MediaTime offset) {
    if (MediaWriterEngine* writer = m_screenWriter.load())
        writer->addTimeOffset(offset);
    if (m_camera.engine())
        m_camera.engine()->addTimeOffset(offset);
}
