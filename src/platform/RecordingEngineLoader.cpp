#include "platform/RecordingEngineLoader.h"

#include "platform/null/NullRecordingEngineFactory.h"
#include "platform/wayland/PortalScreenCaptureAccess.h"
#include "platform/wayland/PortalScreenCast.h"
#include "platform/wayland/WaylandRecordingEngineFactory.h"
#include "platform/x11/X11RecordingEngineFactory.h"

#include "core/settings/UserDefaults.h"
#include "core/support/Log.h"

#include <QDBusConnection>

#include <mutex>

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
                                                   std::optional<CaptureBackend> requested,
                                                   bool screenCastPortal) {
    if (requested)
        return requested;
    if (screenCastPortal && !environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty())
        return CaptureBackend::wayland;
    if (!environment.value(QStringLiteral("DISPLAY")).isEmpty())
        return CaptureBackend::x11;
    return std::nullopt;
}

std::optional<CaptureBackend> captureBackendSetting() {
    const auto value = UserDefaults::standard().stringValue("captureBackend");
    return value ? parseCaptureBackend(*value) : std::nullopt;
}

bool isCaptureBackendAvailable(CaptureBackend backend) {
    if (backend == CaptureBackend::x11)
        return true;
    return PortalScreenCast::availableSourceTypes(QDBusConnection::sessionBus()).has_value();
}

std::unique_ptr<RecordingEngineFactory>
makeRecordingEngineFactory(const RecordingEngineLoaderOptions& options) {
    const bool onWayland =
        !options.backend && !options.environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty();
    const bool portal =
        onWayland && options.screenCastPortalAvailable && options.screenCastPortalAvailable();
    const auto backend = chooseCaptureBackend(options.environment, options.backend, portal);
    if (!backend) {
        auto none = std::make_unique<NullRecordingEngineFactory>(
            QStringLiteral("No display to record: neither DISPLAY nor WAYLAND_DISPLAY is set"));
        none->setCameraOptions(options.camera);
        return none;
    }
    std::unique_ptr<DesktopRecordingEngineFactory> factory;
    static std::once_flag logged;
    std::call_once(logged, [&] {
        logLine("🖥️ Capture backend: {}{}", captureBackendName(*backend).toStdString(),
                options.backend ? " (asked for)" : "");
    });
    switch (*backend) {
    case CaptureBackend::x11:
        ScreenRecordingPermission::setAccess(nullptr);
        factory = std::make_unique<X11RecordingEngineFactory>(options.hiddenApps);
        break;
    case CaptureBackend::wayland:
        ScreenRecordingPermission::setAccess(
            std::make_unique<PortalScreenCaptureAccess>(QDBusConnection::sessionBus()));
        factory = std::make_unique<WaylandRecordingEngineFactory>();
        break;
    }
    factory->setCameraOptions(options.camera);
    return factory;
}
