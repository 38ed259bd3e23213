#pragma once

#include "core/recording/engines/CameraCaptureEngine.h"
#include "platform/v4l2/V4L2CameraDiscovery.h"

#include <QStringList>

#include <optional>
#include <string>
#include <vector>

// The sound that comes with an attached device: a source of the sound server.
struct DeviceSound {
    std::string sourceName; // the server's name, what a recording opens
    QString description;    // what a person reads
    bool operator==(const DeviceSound&) const = default;
};

// An attached video source to record on its own: a capture card or grabber that presents a
// phone, tablet or console (its inputs are named "HDMI", "Composite", "S-Video", "SDI"...), or
// any other V4L2 capture node the person picks, a camera included.
struct CaptureDeviceInfo {
    CameraDeviceInfo device;
    QStringList inputs;         // the node's input names (VIDIOC_ENUMINPUT)
    bool isCaptureCard = false; // an input that is a cable, not a lens
    // The picture's size as the node is set now (VIDIOC_G_FMT); what a recording gets unless it
    // asks for another.
    std::optional<VideoDimensions> size;
    std::optional<DeviceSound> sound; // the device's own sound source, where one belongs to it

    bool operator==(const CaptureDeviceInfo&) const = default;
};

// Lists the capture devices, capture cards first, with the test camera (when
// TAVELQUISTON_TEST_CAMERA=1) standing in for one, each with its own sound where the sound server
// has a source that belongs to it (DeviceSoundMatcher). Thread-safe: it reads the device nodes
// and asks the sound server on a connection of its own.
class V4L2CaptureDeviceDiscovery final {
public:
    static std::vector<CaptureDeviceInfo> discoverDevices();
    // A listed device by /dev path or name; nothing when none matches.
    static std::optional<CaptureDeviceInfo> findDevice(const QString& pathOrName);
    // A sound source by the server's name or its description, monitors included (a person may
    // want to record what a device plays through the computer); nothing when none has it.
    static std::optional<DeviceSound> findSound(const QString& nameOrDescription);
    // Whether an input name is a cable input of a capture card.
    static bool isCableInput(const QString& inputName);
};
