#pragma once

#include "core/recording/engines/EncoderProbe.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "platform/v4l2/CameraInput.h"

#include <QByteArray>

#include <memory>

// The engines of a recording on an X11 desktop: X11 screen capture, the V4L2 camera, the media
// layer's writer and layer packages, and the metadata recorder. Microphone and audio-only
// recordings have no engine on this platform yet; asking for one fails with
// captureDeviceUnavailable, and the machine reports no microphones.
class X11RecordingEngineFactory final : public RecordingEngineFactory {
public:
    // `hiddenApps` is the persisted list of applications hidden from recordings.
    explicit X11RecordingEngineFactory(QByteArray hiddenApps = {});
    ~X11RecordingEngineFactory() override;

    std::unique_ptr<ScreenCaptureEngine> makeScreenCaptureEngine() override;
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

    SCShareableContent fetchShareableContent() override;

    std::vector<AVCaptureDevice> microphones() override { return {}; }
    std::optional<AVCaptureDevice> defaultMicrophone() override { return std::nullopt; }
    std::vector<AVCaptureDevice> cameras() override;
    std::optional<AVCaptureDevice> defaultCamera() override;
    // The size and rate cameras are opened at from now on.
    void setCameraOptions(CameraInput::Options options) { m_cameraOptions = options; }
    bool requestMicrophoneAccess() override { return false; }

    bool isAlphaChannelSupported() override { return false; }
    EncoderProbe& encoderProbe() override { return *m_probe; }

private:
    QByteArray m_hiddenApps;
    std::unique_ptr<EncoderProbe> m_probe;
    CameraInput::Options m_cameraOptions;
};
