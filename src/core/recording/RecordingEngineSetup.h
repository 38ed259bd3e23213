#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/recording/engines/ScreenCaptureEngine.h"

#include <memory>
#include <optional>

class AudioCaptureEngine;
class AudioOnlyRecorder;
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

    // Every video recording collects metadata, at the stream's size (0 x 0 without a stream).
    static std::unique_ptr<MetadataRecorderEngine>
    makeMetadataRecorder(RecordingEngineFactory& factory,
                         const RecordingConfiguration& configuration,
                         std::optional<SCStreamConfiguration> stream);
};
