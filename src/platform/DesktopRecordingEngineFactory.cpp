#include "platform/DesktopRecordingEngineFactory.h"

#include "core/metadata/MetadataRecorderAdapter.h"
#include "core/model/RecordingError.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "media/AudioPackageRecorder.h"
#include "media/MediaWriterAdapter.h"
#include "media/VideoFrame.h"
#include "media/encoding/MediaEncoderProbe.h"
#include "media/layers/MediaLayerRecordingManager.h"
#include "platform/null/NullCursorOverlayController.h"
#include "platform/pulse/AudioDeviceManager.h"
#include "platform/pulse/PulseAudioCaptureEngine.h"
#include "platform/v4l2/V4L2CameraCaptureEngine.h"
#include "platform/v4l2/V4L2CameraDiscovery.h"
#include "render/RasterZoomRenderer.h"

DesktopRecordingEngineFactory::DesktopRecordingEngineFactory()
    : m_probe(std::make_unique<MediaEncoderProbe>()) {}

DesktopRecordingEngineFactory::~DesktopRecordingEngineFactory() = default;

std::unique_ptr<AudioCaptureEngine> DesktopRecordingEngineFactory::makeAudioCaptureEngine() {
    return std::make_unique<PulseAudioCaptureEngine>();
}

std::vector<AVCaptureDevice> DesktopRecordingEngineFactory::microphones() {
    return AudioDeviceManager::getAvailableMicrophones();
}

std::optional<AVCaptureDevice> DesktopRecordingEngineFactory::defaultMicrophone() {
    return AudioDeviceManager::getDefaultMicrophone();
}

std::unique_ptr<CameraCaptureEngine> DesktopRecordingEngineFactory::makeCameraCaptureEngine() {
    return std::make_unique<V4L2CameraCaptureEngine>(m_cameraOptions);
}

std::vector<AVCaptureDevice> DesktopRecordingEngineFactory::cameras() {
    std::vector<AVCaptureDevice> devices;
    for (const CameraDeviceInfo& camera : V4L2CameraDiscovery::discoverCameras())
        devices.push_back(camera.captureDevice());
    return devices;
}

std::optional<AVCaptureDevice> DesktopRecordingEngineFactory::defaultCamera() {
    const std::vector<AVCaptureDevice> all = cameras();
    if (all.empty())
        return std::nullopt;
    return all.front();
}

std::unique_ptr<MediaWriterEngine> DesktopRecordingEngineFactory::makeMediaWriter() {
    return std::make_unique<MediaWriterAdapter>();
}

std::unique_ptr<LayerRecordingManager> DesktopRecordingEngineFactory::makeLayerRecordingManager() {
    return std::make_unique<MediaLayerRecordingManager>(
        [] { return std::make_unique<MediaWriterAdapter>(); });
}

std::unique_ptr<AudioOnlyRecorder>
DesktopRecordingEngineFactory::makeAudioOnlyRecorder(const RecordingConfiguration& configuration) {
    return std::make_unique<AudioPackageRecorder>(configuration);
}

std::unique_ptr<MetadataRecorderEngine>
DesktopRecordingEngineFactory::makeMetadataRecorder(Size resolution, int frameRate) {
    return std::make_unique<MetadataRecorderAdapter>(resolution, frameRate);
}

std::unique_ptr<ZoomRenderer> DesktopRecordingEngineFactory::makeZoomRenderer() {
    return std::make_unique<RasterZoomRenderer>();
}

std::unique_ptr<CursorOverlayController>
DesktopRecordingEngineFactory::makeCursorOverlayController() {
    return std::make_unique<NullCursorOverlayController>();
}

uint32_t DesktopRecordingEngineFactory::quickFrameChecksum(const VideoFrame& frame) {
    return ::quickFrameChecksum(frame);
}
