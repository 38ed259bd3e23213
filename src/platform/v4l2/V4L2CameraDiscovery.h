#pragma once

#include "core/model/CaptureSources.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// A camera as the system lists it: where to open it, what to call it, what it delivers.
struct CameraDeviceInfo {
    // "/dev/videoN" for a V4L2 node; the lavfi graph for the test camera.
    QString path;
    QString name;
    // The pixel formats the node offers, by their V4L2 descriptions ("Motion-JPEG",
    // "YUYV 4:2:2").
    QStringList formats;
    bool isTestCamera = false;
    // Whether the node offers compressed Motion-JPEG, which USB cameras need for 720p at 30
    // frames/s.
    bool offersMJPEG = false;

    AVCaptureDevice captureDevice() const { return AVCaptureDevice{path, name}; }
    bool operator==(const CameraDeviceInfo&) const = default;
};

// Finds the cameras: the /dev/video* nodes whose V4L2 capabilities include video capture
// (metadata and output nodes of the same camera are left out), plus the synthetic "Test Camera"
// when TAVELQUISTON_TEST_CAMERA=1, so every camera path runs on machines without one.
// Thread-safe: it only reads the file system.
class V4L2CameraDiscovery final {
public:
    static constexpr const char* testCameraName = "Test Camera";

    static std::vector<CameraDeviceInfo> discoverCameras();
    static bool isTestCameraEnabled();
    // The lavfi graph of the test camera at a size: a moving test picture paced in real time,
    // YUYV as a webcam delivers it. TAVELQUISTON_TEST_CAMERA_UNPLUG_AFTER=SECONDS makes it stop
    // delivering then, like a camera unplugged.
    static QString testCameraGraph(int width, int height);
    // A listed camera by /dev path, unique id or name; nothing when none matches.
    static std::optional<CameraDeviceInfo> findCamera(const QString& pathOrName);
    // One device node's details; nothing when it cannot capture video or cannot be opened.
    static std::optional<CameraDeviceInfo> inspectNode(const QString& path);
};
