#include "platform/v4l2/V4L2CaptureDeviceDiscovery.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace {

QStringList inputNames(const QString& path) {
    QStringList names;
    const int fd = ::open(path.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return names;
    v4l2_input input{};
    for (input.index = 0; ::ioctl(fd, VIDIOC_ENUMINPUT, &input) == 0; ++input.index)
        names << QString::fromUtf8(reinterpret_cast<const char*>(input.name));
    ::close(fd);
    return names;
}

} // namespace

bool V4L2CaptureDeviceDiscovery::isCableInput(const QString& inputName) {
    for (const char* cable : {"hdmi", "composite", "s-video", "svideo", "sdi", "component", "dvi",
                              "vga", "displayport", "tuner"}) {
        if (inputName.contains(QLatin1String(cable), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

std::vector<CaptureDeviceInfo> V4L2CaptureDeviceDiscovery::discoverDevices() {
    std::vector<CaptureDeviceInfo> devices;
    for (CameraDeviceInfo& camera : V4L2CameraDiscovery::discoverCameras()) {
        CaptureDeviceInfo device;
        device.inputs = camera.isTestCamera ? QStringList{QStringLiteral("Test picture")}
                                            : inputNames(camera.path);
        device.isCaptureCard = std::any_of(device.inputs.begin(), device.inputs.end(),
                                           [](const QString& name) { return isCableInput(name); });
        device.device = std::move(camera);
        devices.push_back(std::move(device));
    }
    std::stable_sort(devices.begin(), devices.end(), [](const auto& a, const auto& b) {
        return a.isCaptureCard && !b.isCaptureCard;
    });
    return devices;
}

std::optional<CaptureDeviceInfo> V4L2CaptureDeviceDiscovery::findDevice(const QString& pathOrName) {
    for (CaptureDeviceInfo& device : discoverDevices()) {
        if (device.device.path == pathOrName || device.device.name == pathOrName)
            return std::move(device);
    }
    return std::nullopt;
}
