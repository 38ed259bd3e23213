#pragma once

#include <QString>

#include <QCoro/QCoroTask>

#include <functional>
#include <memory>

// Whether the desktop lets this program see the screen. An X11 session always does; a Wayland
// session decides through its portal. Thread: main.
class ScreenCaptureAccess {
public:
    virtual ~ScreenCaptureAccess() = default;
    virtual bool preflight() = 0;
    virtual void request() = 0;
    // Asks the capture service for its content once, so the desktop registers the program.
    // Throws on failure.
    virtual void registerWithCaptureService() = 0;
};

class ScreenRecordingPermission {
public:
    static constexpr const char* settingsURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture";

    // Replaces the access check (the default looks for an X11 display in the environment).
    static void setAccess(std::unique_ptr<ScreenCaptureAccess> access);
    // How a settings page is opened; the app installs the desktop's opener.
    static void setSettingsOpener(std::function<void(const QString& url)> opener);

    // Returns when the screen may be recorded; throws RecordingError permissionDenied otherwise.
    static QCoro::Task<void> ensureAuthorized(bool prompt = true);
    static void registerWithScreenCaptureKit();
    static void openSettings();
};
