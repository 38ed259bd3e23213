#pragma once

#include "core/recording/engines/RecordingEngineFactory.h"
#include "platform/v4l2/CameraInput.h"

#include <QByteArray>

#include <memory>

// What every desktop backend shares: the media layer's writer, the metadata recorder and the
// engines that do not depend on how the screen is captured. A backend adds screen capture,
// its content and its pointer monitor; every engine nobody provides is a null engine that
// fails with a clear reason, so a missing capability is an error, never a silent gap.
// Thread-safe, as the interface asks.
class DesktopRecordingEngineFactory : public RecordingEngineFactory {
public:
    DesktopRecordingEngineFactory();
    ~DesktopRecordingEngineFactory() override;

    std::unique_ptr<AudioCaptureEngine> makeAudioCaptureEngine() override;
    std::unique_ptr<CameraCaptureEngine> makeCameraCaptureEngine() override;
    std::unique_ptr<MediaWriterEngine> makeMediaWriter() override;
    std::unique_ptr<LayerRecordingManager> makeLayerRecordingManager() override;
    std::unique_ptr<AudioOnlyRecorder>
    makeAudioOnlyRecorder(const RecordingConfiguration& configuration) override;
    std::unique_ptr<MetadataRecorderEngine> makeMetadataRecorder(Size resolution,
                                                                 int frameRate) override;
    std::unique_ptr<ZoomRenderer> makeZoomRenderer() override;
    std::unique_ptr<CursorOverlayController> makeCursorOverlayController() override;

    std::vector<AVCaptureDevice> microphones() override;
    std::optional<AVCaptureDevice> defaultMicrophone() override;
    std::vector<AVCaptureDevice> cameras() override;
    std::optional<AVCaptureDevice> defaultCamera() override;
    // The size and rate cameras are opened at from now on.
    void setCameraOptions(CameraInput::Options options) { m_cameraOptions = options; }
    // A desktop sound server serves every client of the user: there is nothing to ask.
    bool requestMicrophoneAccess() override { return true; }

    bool isAlphaChannelSupported() override { return false; }
    EncoderProbe& encoderProbe() override { return *m_probe; }
    uint32_t quickFrameChecksum(const VideoFrame& frame) override;

private:
    std::unique_ptr<EncoderProbe> m_probe;
    CameraInput::Options m_cameraOptions;
};
