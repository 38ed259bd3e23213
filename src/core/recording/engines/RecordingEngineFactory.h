#pragma once

#include "core/model/CaptureSources.h"
#include "core/model/RecordingConfiguration.h"
#include "core/model/SCShareableContent.h"

#include <cstdint>
#include <memory>
#include <vector>

class AudioCaptureEngine;
class AudioOnlyRecorder;
class CameraCaptureEngine;
class CursorOverlayController;
class EncoderProbe;
class LayerRecordingManager;
class MediaWriterEngine;
class MetadataRecorderEngine;
class ScreenCaptureEngine;
class VideoFrame;
class ZoomRenderer;

// Makes the engines of a recording and answers what the machine has. The preparation calls it
// off the main thread, so every operation is thread-safe; the engines it returns are new and
// unseen by any other code.
class RecordingEngineFactory {
public:
    virtual ~RecordingEngineFactory() = default;

    virtual std::unique_ptr<ScreenCaptureEngine> makeScreenCaptureEngine() = 0;
    virtual std::unique_ptr<AudioCaptureEngine> makeAudioCaptureEngine() = 0;
    virtual std::unique_ptr<CameraCaptureEngine> makeCameraCaptureEngine() = 0;
    virtual std::unique_ptr<MediaWriterEngine> makeMediaWriter() = 0;
    virtual std::unique_ptr<LayerRecordingManager> makeLayerRecordingManager() = 0;
    virtual std::unique_ptr<AudioOnlyRecorder>
    makeAudioOnlyRecorder(const RecordingConfiguration& configuration) = 0;
    virtual std::unique_ptr<MetadataRecorderEngine> makeMetadataRecorder(Size resolution,
                                                                         int frameRate) = 0;
    virtual std::unique_ptr<ZoomRenderer> makeZoomRenderer() = 0;
    virtual std::unique_ptr<CursorOverlayController> makeCursorOverlayController() = 0;

    // The desktop's displays, windows and applications. Blocks; throws RecordingError.
    virtual SCShareableContent fetchShareableContent() = 0;

    virtual std::vector<AVCaptureDevice> microphones() = 0;
    virtual std::optional<AVCaptureDevice> defaultMicrophone() = 0;
    virtual std::vector<AVCaptureDevice> cameras() = 0;
    virtual std::optional<AVCaptureDevice> defaultCamera() = 0;
    // Asks for the microphone; false when refused.
    virtual bool requestMicrophoneAccess() = 0;

    virtual bool isAlphaChannelSupported() = 0;
    // The window pump's cheap change test: equal values for an unchanged picture. Only the
    // media layer can read a frame's pixels. Thread-safe; called on the pump's thread.
    virtual uint32_t quickFrameChecksum(const VideoFrame& frame) = 0;
    virtual EncoderProbe& encoderProbe() = 0;
};
