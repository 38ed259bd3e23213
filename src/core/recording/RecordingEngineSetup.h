#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/recording/engines/ScreenCaptureEngine.h"

#include <QString>

#include <QCoro/QCoroTask>

#include <functional>
#include <memory>
#include <optional>

class AudioCaptureEngine;
class AudioOnlyRecorder;
class CameraCaptureEngine;
class MetadataRecorderEngine;
class RecordingEngineFactory;
class RecordingFramePath;
class ZoomRenderer;

// What the coordinator builds around prepared engines before a recording is ready: the
// audio-only routing, the live zoom and the metadata recorder. Thread: main.
class RecordingEngineSetup {
public:
    // System audio and microphone go straight to the recorder; a buffer it refuses is dropped,
    // because audio threads must never see an exception.
    static void installAudioOnlyHandlers(AudioCaptureEngine& engine, AudioOnlyRecorder& recorder);

    // Screen frames, system audio and the microphone go through the frame path; the handlers
    // share it, so it lives as long as the engine that calls them.
    static void installFramePath(const std::shared_ptr<RecordingFramePath>& path,
                                 ScreenCaptureEngine* screen, AudioCaptureEngine* audio);

    // A live zoom renderer for click-to-zoom, fitted to the captured rectangle when known.
    static std::unique_ptr<ZoomRenderer> makeZoomRenderer(RecordingEngineFactory& factory,
                                                          std::optional<Rect> captureRect);

    // The engines of a recording, in the order they start; none is owned here, any may be absent.
    struct CaptureEngines {
        CameraCaptureEngine* camera = nullptr;
        ScreenCaptureEngine* screen = nullptr;
        AudioCaptureEngine* audio = nullptr;
        AudioOnlyRecorder* audioOnly = nullptr;
    };
    // Starts each present engine, marking its phases; throws what an engine throws. `isAlive` is
    // asked after the screen's start: when it says no, the engines are gone and nothing else runs.
    static QCoro::Task<void> startCaptureEngines(CaptureEngines engines,
                                                 std::function<void(const QString&)> markPhase,
                                                 std::function<bool()> isAlive);

    // Every video recording collects metadata, at the stream's size (0 x 0 without a stream).
    static std::unique_ptr<MetadataRecorderEngine>
    makeMetadataRecorder(RecordingEngineFactory& factory,
                         const RecordingConfiguration& configuration,
                         std::optional<SCStreamConfiguration> stream);
};
