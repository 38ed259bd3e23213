#pragma once

#include "core/model/CaptureSources.h"

#include <memory>
#include <mutex>
#include <vector>

class CameraPreviewWidget;
class V4L2CameraCaptureEngine;

// One open camera feeding any number of previews. V4L2 streams to one opener only, so the bubble
// and the overlay that show the same device share one of these instead of opening it twice:
// acquire() hands out the running source of a device while anyone holds it. The last holder's
// release closes the device.
// Thread: acquire, add and remove on the main thread; frames fan out on the camera's thread.
class CameraPreviewSource final {
public:
    // The running source for the device, or a newly opened one. Throws RecordingError naming the
    // device when it cannot be opened.
    static std::shared_ptr<CameraPreviewSource> acquire(const AVCaptureDevice& device);
    ~CameraPreviewSource();
    CameraPreviewSource(const CameraPreviewSource&) = delete;
    CameraPreviewSource& operator=(const CameraPreviewSource&) = delete;

    // The preview gets every frame until removed; after removePreview returns it gets none.
    void addPreview(CameraPreviewWidget* preview);
    void removePreview(CameraPreviewWidget* preview);
    const AVCaptureDevice& device() const { return m_device; }

private:
    CameraPreviewSource(const AVCaptureDevice& device, QString key);

    AVCaptureDevice m_device;
    QString m_key; // the device's entry among the open sources
    std::unique_ptr<V4L2CameraCaptureEngine> m_engine;
    // Guards the list; held while a frame is handed to the previews (a pointer swap each), so a
    // removed preview is never called again.
    std::mutex m_mutex;
    std::vector<CameraPreviewWidget*> m_previews;
};
