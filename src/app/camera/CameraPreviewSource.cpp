#include "app/camera/CameraPreviewSource.h"

#include "app/camera/CameraPreviewWidget.h"
#include "platform/v4l2/V4L2CameraCaptureEngine.h"
#include "platform/v4l2/V4L2CameraDiscovery.h"

#include <algorithm>
#include <map>

namespace {
// The sources in use, by device; main thread only.
std::map<QString, std::weak_ptr<CameraPreviewSource>>& openSources() {
    static std::map<QString, std::weak_ptr<CameraPreviewSource>> sources;
    return sources;
}

// One key per device however it was named: by its node (or graph), else as given.
QString keyOf(const AVCaptureDevice& device) {
    std::optional<CameraDeviceInfo> info;
    if (!device.uniqueID.isEmpty())
        info = V4L2CameraDiscovery::findCamera(device.uniqueID);
    if (!info)
        info = V4L2CameraDiscovery::findCamera(device.localizedName);
    if (info)
        return info->path;
    return device.uniqueID.isEmpty() ? device.localizedName : device.uniqueID;
}
} // namespace

std::shared_ptr<CameraPreviewSource> CameraPreviewSource::acquire(const AVCaptureDevice& device) {
    auto& sources = openSources();
    const QString key = keyOf(device);
    if (auto running = sources[key].lock())
        return running;
    std::shared_ptr<CameraPreviewSource> source(new CameraPreviewSource(device, key));
    sources[key] = source;
    return source;
}

CameraPreviewSource::CameraPreviewSource(const AVCaptureDevice& device, QString key)
    : m_device(device), m_key(std::move(key)),
      m_engine(std::make_unique<V4L2CameraCaptureEngine>()) {
    m_engine->setupCamera(device);
    m_engine->setFrameHandler([this](const VideoFrame& frame) {
        std::lock_guard lock(m_mutex);
        for (CameraPreviewWidget* preview : m_previews)
            preview->offerFrame(frame);
    });
    m_engine->startCapture();
}

CameraPreviewSource::~CameraPreviewSource() {
    // The capture thread stops before the list it reads goes away.
    m_engine->cleanup();
    openSources().erase(m_key);
}

void CameraPreviewSource::addPreview(CameraPreviewWidget* preview) {
    std::lock_guard lock(m_mutex);
    m_previews.push_back(preview);
}

void CameraPreviewSource::removePreview(CameraPreviewWidget* preview) {
    std::lock_guard lock(m_mutex);
    m_previews.erase(std::remove(m_previews.begin(), m_previews.end(), preview), m_previews.end());
}
