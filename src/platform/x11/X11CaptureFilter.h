#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/model/SCShareableContent.h"
#include "core/recording/engines/ScreenCaptureEngine.h"

#include <QByteArray>

#include <vector>

// What a stream captures: a display (or part of it) with exclusions, windows and applications
// composed on a display, or one window on its own. Made by the X11 screen capture engine only.
class X11ContentFilter final : public SCContentFilter {
public:
    enum class Kind { display, windows, applications };

    Kind kind = Kind::display;
    SCDisplay display;
    std::vector<SCWindow> includedWindows;
    std::vector<SCRunningApplication> includedApplications;
    std::vector<SCRunningApplication> excludedApplications;
    std::vector<SCWindow> exceptingWindows;
    // Display kind: applications kept out by bundle identifier, also when they start later.
    std::vector<QString> excludedBundleIDs;
    // One window by itself, away from the desktop: the content is the window wherever it goes.
    // Otherwise windows and applications are shown on the whole display.
    bool desktopIndependentWindow = false;
    // The captured content in global points, origin bottom left, and pixels per point.
    Rect contentRect;
    double pointPixelScale = 1.0;

    // Throws RecordingError for iOSDevice, a missing display and a window that is gone.
    // `hiddenApps` is the persisted JSON list of {"bundleID", "name"} objects.
    static X11ContentFilter make(const RecordingMode& mode,
                                 const RecordingConfiguration& configuration,
                                 const SCShareableContent& content, const QByteArray& hiddenApps);

    // The program's own windows that must not be recorded: all but its pointer, magnifier
    // and camera overlays, which are part of the picture on purpose.
    static std::vector<SCWindow> ownWindows(const SCShareableContent& content);
    // Whether a window of that owner and title is one of those own windows.
    static bool isOwnWindowKeptOut(const QString& bundleID, const QString& title);
    // Applications the user hid from recordings; empty for missing or broken data.
    static std::vector<QString> hiddenBundleIDs(const QByteArray& hiddenApps);
};
