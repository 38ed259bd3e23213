#pragma once

#include "platform/v4l2/V4L2CameraDiscovery.h"

#include <QStringList>

#include <optional>
#include <vector>

// An attached video source to record on its own: a capture card or grabber that presents a
// phone, tablet or console (its inputs are named "HDMI", "Composite", "S-Video", "SDI"...), or
// any other V4L2 capture node the person picks, a camera included.
struct CaptureDeviceInfo {
    CameraDeviceInfo device;
    QStringList inputs;         // the node's input names (VIDIOC_ENUMINPUT)
    bool isCaptureCard = false; // an input that is a cable, not a lens

    bool operator==(const CaptureDeviceInfo&) const = default;
};

// Lists the capture devices, capture cards first, with the test camera (when
// TAVELQUISTON_TEST_CAMERA=1) standing in for one. Thread-safe: it only reads the device nodes.
class V4L2CaptureDeviceDiscovery final {
public:
    static std::vector<CaptureDeviceInfo> discoverDevices();
    // A listed device by /dev path or name; nothing when none matches.
    static std::optional<CaptureDeviceInfo> findDevice(const QString& pathOrName);
    // Whether an input name is a cable input of a capture card.
    static bool isCableInput(const QString& inputName);
};
