#pragma once

#include <array>
#include <cstdint>
#include <string_view>

// Program-wide values.
namespace Constants {

inline constexpr std::string_view bundleIdentifier = "com.tavelquiston.app";
inline constexpr std::array<int, 9> availableFrameRates{10, 15, 24, 30, 60, 90, 120, 144, 240};
// Unicode date pattern: "y" is the full year without padding.
inline constexpr std::string_view dateFormat = "y-MM-dd HH.mm.ss";
inline constexpr std::string_view recordingPrefix = "Recording at ";
inline constexpr std::string_view capturePrefix = "Capturing at ";
inline constexpr std::string_view trimmedSuffix = "(Cropped in ";
inline constexpr int minimumDiskSpaceGB = 1;
inline constexpr int64_t minimumDiskSpaceBytes = 1'073'741'824;
inline constexpr double previewAutoCloseSeconds = 6.0;
inline constexpr int defaultSampleRate = 48'000;
inline constexpr int defaultChannelCount = 2;
inline constexpr std::array<std::string_view, 6> systemExcludedApps{
    "com.apple.dock",           "com.apple.screencaptureui",
    "com.apple.controlcenter",  "com.apple.notificationcenterui",
    "com.apple.systemuiserver", "com.apple.WindowManager"};
inline constexpr int frameTimingBufferSize = 60;
inline constexpr double maxFrameInterval = 0.1;
inline constexpr double presenterOverlaySafeDelay = 0.5;
inline constexpr double defaultCameraSize = 300.0;
inline constexpr std::string_view audioPackageExtension = "vxa";
inline constexpr std::string_view audioPackageSystemFile = "sys";
inline constexpr std::string_view audioPackageMicFile = "mic";
inline constexpr std::string_view audioPackageInfoFile = "info.json";

namespace NotificationID {
inline constexpr std::string_view recordingCompleted = "tavelquiston.notification.completed";
inline constexpr std::string_view recordingFailed = "tavelquiston.notification.failed";
inline constexpr std::string_view permissionRequired = "tavelquiston.notification.permission";
inline constexpr std::string_view diskSpaceWarning = "tavelquiston.notification.diskspace";
} // namespace NotificationID

namespace WindowTitle {
inline constexpr std::string_view modeSelection = "tavelquiston";
inline constexpr std::string_view screenSelector = "Select Screen";
inline constexpr std::string_view areaSelector = "Select Area";
inline constexpr std::string_view windowSelector = "Select Window";
inline constexpr std::string_view applicationSelector = "Select Application";
inline constexpr std::string_view settings = "Settings";
inline constexpr std::string_view statusBar = "Recording Controls";
inline constexpr std::string_view preview = "Preview";
inline constexpr std::string_view videoTrimmer = "Video Trimmer";
inline constexpr std::string_view mousePointer = "Mouse Pointer";
inline constexpr std::string_view screenMagnifier = "Screen Magnifier";
inline constexpr std::string_view rippleEffect = "Ripple Effect";
inline constexpr std::string_view cameraOverlay = "Camera Overlayer";
inline constexpr std::string_view iDeviceOverlay = "iDevice Overlayer";
inline constexpr std::string_view areaOverlay = "Area Overlayer";
} // namespace WindowTitle

// Names of the persisted defaults (see UserDefaults for how each is read).
namespace UserDefaultsKey {
inline constexpr std::string_view outputDirectory = "outputDirectory";
inline constexpr std::string_view resolution = "resolution";
inline constexpr std::string_view frameRate = "frameRate";
inline constexpr std::string_view videoQuality = "videoQuality";
inline constexpr std::string_view encoder = "encoder";
inline constexpr std::string_view outputFormat = "outputFormat";
inline constexpr std::string_view showCursor = "showCursor";
inline constexpr std::string_view highlightCursor = "highlightCursor";
inline constexpr std::string_view recordSystemAudio = "recordSystemAudio";
inline constexpr std::string_view recordMicrophone = "recordMicrophone";
inline constexpr std::string_view microphoneDevice = "microphoneDevice";
inline constexpr std::string_view enableAEC = "enableAEC";
inline constexpr std::string_view recordCamera = "recordCamera";
inline constexpr std::string_view cameraDevice = "cameraDevice";
inline constexpr std::string_view separateAudioTracks = "separateAudioTracks";
inline constexpr std::string_view backgroundColor = "backgroundColor";
inline constexpr std::string_view countdown = "countdown";
inline constexpr std::string_view autoStopMinutes = "autoStopMinutes";
inline constexpr std::string_view preventSleep = "preventSleep";
inline constexpr std::string_view launchAtLogin = "launchAtLogin";
inline constexpr std::string_view showInDock = "showInDock";
inline constexpr std::string_view showInMenuBar = "showInMenuBar";
inline constexpr std::string_view trimAfterRecord = "trimAfterRecord";
inline constexpr std::string_view showPreview = "showPreview";
inline constexpr std::string_view hiddenApps = "hiddenApps";
inline constexpr std::string_view savedArea = "savedArea";
inline constexpr std::string_view enableAlphaChannel = "enableAlphaChannel";
inline constexpr std::string_view alphaChannelCodec = "alphaChannelCodec";
inline constexpr std::string_view enableSeparateLayers = "enableSeparateLayers";
inline constexpr std::string_view enableClickToZoom = "enableClickToZoom";
inline constexpr std::string_view enableSmartAutoClickZoom = "enableSmartAutoClickZoom";
inline constexpr std::string_view zoomLevel = "zoomLevel";
inline constexpr std::string_view zoomDuration = "zoomDuration";
inline constexpr std::string_view clickThreshold = "clickThreshold";
} // namespace UserDefaultsKey

} // namespace Constants
