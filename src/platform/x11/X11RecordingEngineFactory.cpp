#include "platform/x11/X11RecordingEngineFactory.h"

#include "core/model/RecordingError.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/CursorOverlayController.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/ZoomRenderer.h"
#include "media/encoding/VideoTrackEncoder.h"
#include "media/layers/MediaLayerRecordingManager.h"
#include "platform/recording/MediaWriterAdapter.h"
#include "platform/recording/MetadataRecorderAdapter.h"
#include "platform/v4l2/V4L2CameraCaptureEngine.h"
#include "platform/v4l2/V4L2CameraDiscovery.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ScreenCaptureEngine.h"
#include "platform/x11/X11ShareableContent.h"

namespace {

// Opens the H.264 encoder a writer would pick at a size, and closes it again.
class MediaEncoderProbe final : public EncoderProbe {
public:
    bool canOpenH264Encoder(int width, int height) override {
        VideoCodecSettings settings;
        settings.codec = VideoCodecSettings::Codec::h264;
        settings.width = width;
        settings.height = height;
        settings.averageBitRate = 1'000'000;
        std::string error;
        return VideoTrackEncoder::create(settings, EncoderTuning{}, false, error) != nullptr;
    }
};

// The pointer monitor and its overlays are not part of X11 recordings yet: the recording goes
// on without highlight, magnifier or click events.
class AbsentCursorOverlay final : public CursorOverlayController {
public:
    void setClickThreshold(double) override {}
    void setClickHandler(ClickHandler) override {}
    void setCursorMoveHandler(MoveHandler) override {}
    void configureCustomCursor(std::optional<CursorStyle>, double, bool, bool, bool,
                               std::optional<CodableColor>) override {}
    void setHighlightEnabled(bool) override {}
    bool isHighlightEnabled() const override { return false; }
    void setMagnifierEnabled(bool) override {}
    bool isMagnifierEnabled() const override { return false; }
    void startMonitoring() override {}
    void stopMonitoring() override {}
};

// The live zoom is drawn by a later renderer; until then frames pass through unzoomed.
class PassThroughZoomRenderer final : public ZoomRenderer {
public:
    void setCaptureFrame(Size, Point) override {}
    void setClickZoom(bool) override {}
    void setFollowCursor(bool) override {}
    void setHUDEnabled(bool) override {}
    void setHUDIncludeInRecording(bool) override {}
    void setDebugEnabled(bool) override {}
};

} // namespace

X11RecordingEngineFactory::X11RecordingEngineFactory(QByteArray hiddenApps)
    : m_hiddenApps(std::move(hiddenApps)), m_probe(std::make_unique<MediaEncoderProbe>()) {}

X11RecordingEngineFactory::~X11RecordingEngineFactory() = default;

std::unique_ptr<ScreenCaptureEngine> X11RecordingEngineFactory::makeScreenCaptureEngine() {
    return std::make_unique<X11ScreenCaptureEngine>(m_hiddenApps);
}

std::unique_ptr<AudioCaptureEngine> X11RecordingEngineFactory::makeAudioCaptureEngine() {
    throw RecordingError::captureDeviceUnavailable();
}

std::unique_ptr<CameraCaptureEngine> X11RecordingEngineFactory::makeCameraCaptureEngine() {
    return std::make_unique<V4L2CameraCaptureEngine>(m_cameraOptions);
}

std::vector<AVCaptureDevice> X11RecordingEngineFactory::cameras() {
    std::vector<AVCaptureDevice> devices;
    for (const CameraDeviceInfo& camera : V4L2CameraDiscovery::discoverCameras())
        devices.push_back(camera.captureDevice());
    return devices;
}

std::optional<AVCaptureDevice> X11RecordingEngineFactory::defaultCamera() {
    const std::vector<AVCaptureDevice> all = cameras();
    if (all.empty())
        return std::nullopt;
    return all.front();
}

std::unique_ptr<MediaWriterEngine> X11RecordingEngineFactory::makeMediaWriter() {
    return std::make_unique<MediaWriterAdapter>();
}

std::unique_ptr<LayerRecordingManager> X11RecordingEngineFactory::makeLayerRecordingManager() {
    return std::make_unique<MediaLayerRecordingManager>(
        [] { return std::make_unique<MediaWriterAdapter>(); });
}

std::unique_ptr<AudioOnlyRecorder>
X11RecordingEngineFactory::makeAudioOnlyRecorder(const RecordingConfiguration&) {
    throw RecordingError::captureDeviceUnavailable();
}

std::unique_ptr<MetadataRecorderEngine>
X11RecordingEngineFactory::makeMetadataRecorder(Size resolution, int frameRate) {
    return std::make_unique<MetadataRecorderAdapter>(resolution, frameRate);
}

std::unique_ptr<ZoomRenderer> X11RecordingEngineFactory::makeZoomRenderer() {
    return std::make_unique<PassThroughZoomRenderer>();
}

std::unique_ptr<CursorOverlayController> X11RecordingEngineFactory::makeCursorOverlayController() {
    return std::make_unique<AbsentCursorOverlay>();
}

SCShareableContent X11RecordingEngineFactory::fetchShareableContent() {
    X11Connection connection;
    return X11ShareableContent::fetch(connection);
}
