#include "core/support/ScreenRecordingPermission.h"

#include "core/model/RecordingError.h"
#include "core/support/Log.h"

namespace {
// X11 grants every client the screen; without an X11 display there is nothing to capture.
class EnvironmentScreenCaptureAccess final : public ScreenCaptureAccess {
public:
    bool preflight() override { return !qEnvironmentVariableIsEmpty("DISPLAY"); }
    void request() override {}
    void registerWithCaptureService() override {
        if (!preflight())
            throw RecordingError::captureDeviceUnavailable();
    }
};

std::unique_ptr<ScreenCaptureAccess>& access() {
    static std::unique_ptr<ScreenCaptureAccess> instance =
        std::make_unique<EnvironmentScreenCaptureAccess>();
    return instance;
}

std::function<void(const QString&)>& settingsOpener() {
    static std::function<void(const QString&)> opener;
    return opener;
}
} // namespace

void ScreenRecordingPermission::setAccess(std::unique_ptr<ScreenCaptureAccess> newAccess) {
    access() =
        newAccess ? std::move(newAccess) : std::make_unique<EnvironmentScreenCaptureAccess>();
}

void ScreenRecordingPermission::setSettingsOpener(std::function<void(const QString&)> opener) {
    settingsOpener() = std::move(opener);
}

QCoro::Task<void> ScreenRecordingPermission::ensureAuthorized(bool prompt) {
    if (access()->preflight())
        co_return;
    if (!prompt)
        throw RecordingError::permissionDenied(PermissionType::screenRecording);
    access()->request();
    registerWithScreenCaptureKit();
    if (access()->preflight())
        co_return;
    openSettings();
    throw RecordingError::permissionDenied(PermissionType::screenRecording);
}

void ScreenRecordingPermission::registerWithScreenCaptureKit() {
    try {
        access()->registerWithCaptureService();
    } catch (const RecordingError& error) {
        logLine("⚠️ ScreenCaptureKit permission registration failed: {}",
                error.localizedDescription().toStdString());
    } catch (const std::exception& error) {
        logLine("⚠️ ScreenCaptureKit permission registration failed: {}", error.what());
    }
}

void ScreenRecordingPermission::openSettings() {
    const QString url = QString::fromLatin1(settingsURL);
    if (settingsOpener())
        settingsOpener()(url);
    else
        logLine("⚠️ No settings page can be opened here: {}", url.toStdString());
}
