#include "platform/RecordingEngineLoader.h"

#include "platform/null/NullRecordingEngineFactory.h"
#include "platform/x11/X11RecordingEngineFactory.h"

std::optional<CaptureBackend> parseCaptureBackend(const QString& name) {
    if (name == QLatin1String("x11"))
        return CaptureBackend::x11;
    if (name == QLatin1String("wayland"))
        return CaptureBackend::wayland;
    return std::nullopt;
}

QString captureBackendName(CaptureBackend backend) {
    return backend == CaptureBackend::x11 ? QStringLiteral("x11") : QStringLiteral("wayland");
}

std::optional<CaptureBackend> chooseCaptureBackend(const QProcessEnvironment& environment,
                                                   std::optional<CaptureBackend> requested) {
    if (requested)
        return requested;
    if (!environment.value(QStringLiteral("DISPLAY")).isEmpty())
        return CaptureBackend::x11;
    return std::nullopt;
}

std::unique_ptr<RecordingEngineFactory>
makeRecordingEngineFactory(const RecordingEngineLoaderOptions& options) {
    const auto backend = chooseCaptureBackend(options.environment, options.backend);
    std::unique_ptr<DesktopRecordingEngineFactory> factory;
    if (!backend)
        factory = std::make_unique<NullRecordingEngineFactory>(
            QStringLiteral("No display to record: DISPLAY is not set"));
    else if (*backend == CaptureBackend::x11)
        factory = std::make_unique<X11RecordingEngineFactory>(options.hiddenApps);
    else
        factory = std::make_unique<NullRecordingEngineFactory>(
            QStringLiteral("Wayland screen capture is not available in this build"));
    factory->setCameraOptions(options.camera);
    return factory;
}
