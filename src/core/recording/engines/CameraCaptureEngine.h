#pragma once

#include "core/model/CaptureSources.h"
#include "core/time/MediaTime.h"

#include <optional>

class MediaWriterEngine;

// The camera's frame size in pixels.
struct VideoDimensions {
    int width = 0;
    int height = 0;
    bool operator==(const VideoDimensions&) const = default;
};

// The camera, for the overlay or, with separate layers, its own movie file.
// Thread: set up on a worker thread or the main thread (prewarming); the other calls on the
// main thread. Frames arrive on the engine's own thread.
class CameraCaptureEngine {
public:
    virtual ~CameraCaptureEngine() = default;

    // Throws RecordingError when the device cannot be opened.
    virtual void setupCamera(const AVCaptureDevice& device) = 0;
    virtual std::optional<VideoDimensions> activeVideoDimensions() const = 0;
    // Enters separate-layer mode; the writer is owned by the layer manager and outlives this use.
    virtual void configureSeparateWriter(MediaWriterEngine* writer) = 0;

    virtual void startCapture() = 0;
    virtual void stopCapture() = 0;
    virtual bool isCapturing() const = 0;
    virtual void cleanup() = 0;

    virtual void setRecordingPaused(bool paused) = 0;
    virtual void addTimeOffset(MediaTime offset) = 0;

    virtual bool isSeparateLayerRecording() const = 0;
    virtual std::optional<MediaTime> syncedSessionStartTime() const = 0;
    virtual void startWriterSessionIfNeeded(MediaTime at) = 0;
};
