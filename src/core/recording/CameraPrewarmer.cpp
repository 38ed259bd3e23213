#include "core/recording/CameraPrewarmer.h"

#include "core/recording/ErrorDescription.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/support/Log.h"

CameraPrewarmer::CameraPrewarmer(RecordingEngineFactory& factory, DeviceResolver resolve)
    : m_factory(factory), m_resolve(std::move(resolve)) {}

CameraPrewarmer::~CameraPrewarmer() = default;

void CameraPrewarmer::prewarm(const std::optional<QString>& deviceName) {
    const QString name = deviceName.value_or(QStringLiteral("default"));
    if (m_engine && m_deviceName == name) {
        if (!m_engine->isCapturing())
            m_engine->startCapture();
        return;
    }
    if (m_engine)
        stop();
    const std::optional<AVCaptureDevice> device = m_resolve(name);
    if (!device) {
        logLine("⚠️ Prewarm camera failed: device not found");
        return;
    }
    try {
        auto engine = m_factory.makeCameraCaptureEngine();
        engine->setupCamera(*device);
        engine->startCapture();
        m_engine = std::move(engine);
        m_deviceName = name;
        logLine("✅ Prewarmed camera: {}", device->localizedName.toStdString());
    } catch (const std::exception& error) {
        logLine("⚠️ Prewarm camera failed: {}", describeError(error));
    }
}

void CameraPrewarmer::stop() {
    if (!m_engine)
        return;
    m_engine->stopCapture();
    m_engine->cleanup();
    m_engine.reset();
    m_deviceName.reset();
}

void CameraPrewarmer::replace(std::unique_ptr<CameraCaptureEngine> engine) {
    m_engine = std::move(engine);
}
