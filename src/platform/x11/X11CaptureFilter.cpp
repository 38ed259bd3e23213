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

Rect unionOf(const Rect& a, const Rect& b) {
    const double minX = std::min(a.minX(), b.minX());
    const double minY = std::min(a.minY(), b.minY());
    return Rect(minX, minY, std::max(a.maxX(), b.maxX()) - minX,
                std::max(a.maxY(), b.maxY()) - minY);
}

const SCDisplay& firstDisplay(const SCShareableContent& content) {
    if (content.displays.empty())
        throw RecordingError::captureDeviceUnavailable();
    return content.displays.front();
}

} // namespace

std::vector<SCWindow> SCContentFilter::ownWindows(const SCShareableContent& content) {
    const QString own = fromView(Constants::bundleIdentifier);
    std::vector<SCWindow> windows;
    for (const SCWindow& window : content.windows) {
        if (!window.owningApplication || window.owningApplication->bundleIdentifier != own)
            continue;
        if (window.title == fromView(Constants::WindowTitle::mousePointer) ||
            window.title == fromView(Constants::WindowTitle::screenMagnifier) ||
            window.title == fromView(Constants::WindowTitle::cameraOverlay))
            continue;
        windows.push_back(window);
    }
    return windows;
}

std::vector<QString> SCContentFilter::hiddenBundleIDs(const QByteArray& hiddenApps) {
    std::vector<QString> ids;
    const QJsonDocument document = QJsonDocument::fromJson(hiddenApps);
    for (const QJsonValue& entry : document.array()) {
        const QString id = entry.toObject().value(QLatin1String("bundleID")).toString();
        if (!id.isEmpty())
            ids.push_back(id);
    }
    return ids;
}

SCContentFilter SCContentFilter::make(const RecordingMode& mode,
                                      const RecordingConfiguration& configuration,
                                      const SCShareableContent& content,
                                      const QByteArray& hiddenApps) {
    SCContentFilter filter;
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
        return filter;
    }

    std::vector<SCWindow> windows;
    if (const auto* one = mode.as<RecordingMode::Window>())
        windows.push_back(one->window);
    else if (const auto* list = mode.as<RecordingMode::Windows>())
        windows = list->windows;
    if (!windows.empty()) {
        filter.kind = Kind::windows;
        filter.includedWindows = windows;
        filter.contentRect = windows.front().frame;
        for (const SCWindow& window : windows)
            filter.contentRect = unionOf(filter.contentRect, window.frame);
        return filter;
    }

    const auto* apps = mode.as<RecordingMode::Application>();
    filter.kind = Kind::applications;
    if (apps)
        filter.includedApplications = apps->apps;
    for (const SCWindow& window : content.windows) {
        if (window.owningApplication &&
            std::any_of(filter.includedApplications.begin(), filter.includedApplications.end(),
                        [&](const SCRunningApplication& app) {
                            return app.bundleIdentifier ==
                                   window.owningApplication->bundleIdentifier;
                        }))
            filter.includedWindows.push_back(window);
    }
    (void)configuration;
    return filter;
}
