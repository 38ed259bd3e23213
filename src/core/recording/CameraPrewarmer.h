#pragma once

#include "core/model/CaptureSources.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

class CameraCaptureEngine;
class RecordingEngineFactory;

// Holds the coordinator's camera. A camera started before the click (prewarmed) is handed to
// the recording that asks for the same device, so its first frame is ready at once.
// Thread: main.
class CameraPrewarmer {
public:
    using DeviceResolver =
        std::function<std::optional<AVCaptureDevice>(const std::optional<QString>& name)>;

    CameraPrewarmer(RecordingEngineFactory& factory, DeviceResolver resolve);
    ~CameraPrewarmer();

    CameraCaptureEngine* engine() const { return m_engine.get(); }
    // "default" for the default camera; absent when the camera wasn't prewarmed.
    const std::optional<QString>& deviceName() const { return m_deviceName; }

    // Starts the named camera (absent or "default": the default one), reusing a running one of
    // the same name. Failures are logged: a camera that can't warm up is opened at the start.
    void prewarm(const std::optional<QString>& deviceName);
    // Stops, cleans up and forgets the camera.
    void stop();
    // Takes the camera a preparation made; null releases the current one.
    void replace(std::unique_ptr<CameraCaptureEngine> engine);

private:
    RecordingEngineFactory& m_factory;
    DeviceResolver m_resolve;
    std::unique_ptr<CameraCaptureEngine> m_engine;
    std::optional<QString> m_deviceName;
};
