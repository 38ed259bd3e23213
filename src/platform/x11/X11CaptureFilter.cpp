#include "platform/x11/X11CaptureFilter.h"

#include "core/model/Constants.h"
#include "core/model/RecordingError.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

QString fromView(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

// Panels and desktops of the common X11 desktops: part of the desktop, never of a recording.
constexpr std::string_view systemApplications[] = {
    "xfce4-panel", "xfdesktop", "plasmashell", "lxpanel", "lxqt-panel", "tint2", "polybar",
};

bool isSystemApplication(const QString& bundleID) {
    return std::any_of(std::begin(systemApplications), std::end(systemApplications),
                       [&](std::string_view name) { return bundleID == fromView(name); });
}

const SCDisplay& firstDisplay(const SCShareableContent& content) {
    if (content.displays.empty())
        throw RecordingError::captureDeviceUnavailable();
    return content.displays.front();
}

} // namespace

bool X11ContentFilter::isOwnWindowKeptOut(const QString& bundleID, const QString& title) {
    return bundleID == fromView(Constants::bundleIdentifier) &&
           title != fromView(Constants::WindowTitle::mousePointer) &&
           title != fromView(Constants::WindowTitle::screenMagnifier) &&
           title != fromView(Constants::WindowTitle::cameraOverlay);
}

std::vector<SCWindow> X11ContentFilter::ownWindows(const SCShareableContent& content) {
    std::vector<SCWindow> windows;
    for (const SCWindow& window : content.windows) {
        if (window.owningApplication &&
            isOwnWindowKeptOut(window.owningApplication->bundleIdentifier, window.title))
            windows.push_back(window);
    }
    return windows;
}

std::vector<QString> X11ContentFilter::hiddenBundleIDs(const QByteArray& hiddenApps) {
    std::vector<QString> ids;
    const QJsonDocument document = QJsonDocument::fromJson(hiddenApps);
    for (const QJsonValue& entry : document.array()) {
        const QString id = entry.toObject().value(QLatin1String("bundleID")).toString();
        if (!id.isEmpty())
            ids.push_back(id);
    }
    return ids;
}

X11ContentFilter X11ContentFilter::make(const RecordingMode& mode,
                                        const RecordingConfiguration& configuration,
                                        const SCShareableContent& content,
                                        const QByteArray& hiddenApps) {
    X11ContentFilter filter;
    if (mode.is<RecordingMode::IOSDevice>())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("iOS device recording uses AVFoundation, not ScreenCaptureKit"));

    if (const auto* screen = mode.as<RecordingMode::Screen>()) {
        filter.display = screen->display;
    } else if (const auto* area = mode.as<RecordingMode::ScreenArea>()) {
        filter.display = area->display;
    } else {
        filter.display = firstDisplay(content);
    }
    filter.contentRect = filter.display.frame;
    filter.pointPixelScale = filter.display.pixelScale;

    if (mode.is<RecordingMode::Screen>() || mode.is<RecordingMode::ScreenArea>() ||
        mode.is<RecordingMode::SystemAudio>()) {
        filter.kind = Kind::display;
        if (mode.is<RecordingMode::SystemAudio>())
            return filter;
        filter.exceptingWindows = ownWindows(content);
        const std::vector<QString> hidden = hiddenBundleIDs(hiddenApps);
        for (const SCRunningApplication& app : content.applications) {
            if (isSystemApplication(app.bundleIdentifier))
                filter.excludedApplications.push_back(app);
        }
        for (const SCRunningApplication& app : content.applications) {
            if (std::find(hidden.begin(), hidden.end(), app.bundleIdentifier) != hidden.end())
                filter.excludedApplications.push_back(app);
        }
        // Applications started during the recording are kept out as well.
        for (std::string_view name : systemApplications)
            filter.excludedBundleIDs.push_back(fromView(name));
        filter.excludedBundleIDs.insert(filter.excludedBundleIDs.end(), hidden.begin(),
                                        hidden.end());
        return filter;
    }

    // Windows and applications are shown on the whole display, at their places on it.
    std::vector<SCWindow> windows;
    if (const auto* one = mode.as<RecordingMode::Window>()) {
        windows.push_back(one->window);
        if (configuration.backgroundColor != BackgroundType::wallpaper) {
            filter.desktopIndependentWindow = true;
            filter.contentRect = one->window.frame;
        }
    } else if (const auto* list = mode.as<RecordingMode::Windows>()) {
        windows = list->windows;
    }
    if (!windows.empty()) {
        filter.kind = Kind::windows;
        filter.includedWindows = windows;
        return filter;
    }

    // The program's own overlays (pointer, magnifier, camera) belong to the picture; its
    // other windows never do.
    const auto* apps = mode.as<RecordingMode::Application>();
    filter.kind = Kind::applications;
    if (apps)
        filter.includedApplications = apps->apps;
    const QString own = fromView(Constants::bundleIdentifier);
    const auto ownApp =
        std::find_if(content.applications.begin(), content.applications.end(),
                     [&](const SCRunningApplication& app) { return app.bundleIdentifier == own; });
    if (ownApp != content.applications.end()) {
        filter.includedApplications.push_back(*ownApp);
        filter.exceptingWindows = ownWindows(content);
    }
    for (const SCWindow& window : content.windows) {
        if (window.owningApplication &&
            std::any_of(filter.includedApplications.begin(), filter.includedApplications.end(),
                        [&](const SCRunningApplication& app) {
                            return app.bundleIdentifier ==
                                   window.owningApplication->bundleIdentifier;
                        }) &&
            !isOwnWindowKeptOut(window.owningApplication->bundleIdentifier, window.title))
            filter.includedWindows.push_back(window);
    }
    return filter;
}
