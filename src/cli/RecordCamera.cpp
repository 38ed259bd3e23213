#include "cli/RecordCamera.h"

#include "cli/RecordCommand.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"

#include <fmt/format.h>

CameraDeviceInfo checkRecordCamera(const QString& requested, RecordingEngineFactory& factory) {
    const std::optional<CameraDeviceInfo> camera = V4L2CameraDiscovery::findCamera(requested);
    if (!camera)
        throw CliUsageError(fmt::format("--camera \"{}\" is not a camera here; `tavelquiston-cli "
                                        "list cameras` shows them",
                                        requested.toStdString()));
    // Opened once and closed again: the recording opens it for itself, but only after the
    // package folder exists, and a device that fails then would leave that folder behind.
    try {
        std::unique_ptr<CameraCaptureEngine> engine = factory.makeCameraCaptureEngine();
        engine->setupCamera(camera->captureDevice());
        engine->cleanup();
    } catch (const std::exception& error) {
        throw CliUsageError(
            fmt::format("--camera \"{}\": {}", requested.toStdString(), error.what()));
    }
    return *camera;
}
