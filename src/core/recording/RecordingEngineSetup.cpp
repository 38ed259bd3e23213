#include "core/recording/RecordingEngineSetup.h"

#include "core/recording/RecordingFramePath.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/recording/engines/ZoomRenderer.h"
#include "core/support/Log.h"

namespace {
const char* boolText(bool value) {
    return value ? "true" : "false";
}
} // namespace

void RecordingEngineSetup::installAudioOnlyHandlers(AudioCaptureEngine& engine,
                                                    AudioOnlyRecorder& recorder) {
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

void RecordingEngineSetup::installFramePath(const std::shared_ptr<RecordingFramePath>& path,
                                            ScreenCaptureEngine* screen,
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

std::unique_ptr<ZoomRenderer>
RecordingEngineSetup::makeZoomRenderer(RecordingEngineFactory& factory,
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

std::unique_ptr<MetadataRecorderEngine>
RecordingEngineSetup::makeMetadataRecorder(RecordingEngineFactory& factory,
                                           const RecordingConfiguration& configuration,
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

QCoro::Task<void>
RecordingEngineSetup::startCaptureEngines(CaptureEngines engines,
                                          std::function<void(const QString&)> markPhase,
                                          std::function<bool()> isAlive) {
    if (engines.camera) {
        markPhase(QStringLiteral("cameraCapture.start.begin"));
        engines.camera->startCapture();
        markPhase(QStringLiteral("cameraCapture.start.end"));
    }
    if (engines.screen) {
        logLine("🎥 Starting screen capture...");
        markPhase(QStringLiteral("screenCapture.start.begin"));
        co_await engines.screen->startCapture();
        if (!isAlive())
            co_return;
        markPhase(QStringLiteral("screenCapture.start.end"));
        logLine("✅ Screen capture started");
    }
    if (engines.audio) {
        logLine("🎤 Starting audio capture...");
        markPhase(QStringLiteral("audioCapture.start.begin"));
        engines.audio->startCapture();
        markPhase(QStringLiteral("audioCapture.start.end"));
        logLine("✅ Audio capture started");
    }
    if (engines.audioOnly)
        engines.audioOnly->startRecording();
}
