#pragma once

#include "platform/v4l2/CameraInput.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>

#include <memory>
#include <optional>

class RecordingEngineFactory;

// How the screen is captured on this desktop.
enum class CaptureBackend { x11, wayland };

std::optional<CaptureBackend> parseCaptureBackend(const QString& name);
QString captureBackendName(CaptureBackend backend);

// The backend for a session: the one asked for, else X11 wherever an X display is named (an
// X11 desktop, or Xwayland under a Wayland one); none when there is no display at all.
std::optional<CaptureBackend> chooseCaptureBackend(const QProcessEnvironment& environment,
                                                   std::optional<CaptureBackend> requested);

struct RecordingEngineLoaderOptions {
    QByteArray hiddenApps;                 // the persisted "hiddenApps" list
    std::optional<CaptureBackend> backend; // from the command line or a setting
    CameraInput::Options camera;           // the size and rate cameras are opened at
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

// The one place that picks the engines of a recording. A backend that cannot run here gives a
// factory whose screen engine fails with the reason, so the caller reports it like any other
// preparation error. Thread: any.
std::unique_ptr<RecordingEngineFactory>
makeRecordingEngineFactory(const RecordingEngineLoaderOptions& options = {});
