#include "platform/v4l2/V4L2CaptureDeviceDiscovery.h"

#include "platform/pulse/DeviceSoundMatcher.h"
#include "platform/pulse/PulseConnection.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace {

// The node's inputs and current picture size.
void inspectInputs(const QString& path, CaptureDeviceInfo& device) {
    const int fd = ::open(path.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return;
    v4l2_input input{};
    for (input.index = 0; ::ioctl(fd, VIDIOC_ENUMINPUT, &input) == 0; ++input.index)
        device.inputs << QString::fromUtf8(reinterpret_cast<const char*>(input.name));
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (::ioctl(fd, VIDIOC_G_FMT, &format) == 0 && format.fmt.pix.width > 0)
        device.size = VideoDimensions{int(format.fmt.pix.width), int(format.fmt.pix.height)};
    ::close(fd);
}

std::vector<PulseConnection::Source> soundSources() {
    try {
        PulseConnection connection("tavelquiston device list");
        return connection.sources();
    } catch (const std::runtime_error&) {
        return {}; // no sound server: no device has sound
    }
}

DeviceSound soundOf(const PulseConnection::Source& source) {
    return {source.name, QString::fromStdString(source.description)};
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
    const std::vector<PulseConnection::Source> sources = soundSources();
    const DeviceSoundMatcher matcher;
    for (CameraDeviceInfo& camera : V4L2CameraDiscovery::discoverCameras()) {
        CaptureDeviceInfo device;
        if (camera.isTestCamera) {
            device.inputs = QStringList{QStringLiteral("Test picture")};
            device.size = VideoDimensions{1280, 720}; // the size of its listed graph
        } else {
            inspectInputs(camera.path, device);
        }
        device.isCaptureCard = std::any_of(device.inputs.begin(), device.inputs.end(),
                                           [](const QString& name) { return isCableInput(name); });
        if (auto source =
                matcher.match(camera.path.toStdString(), camera.name.toStdString(), sources))
            device.sound = soundOf(*source);
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

std::optional<DeviceSound> V4L2CaptureDeviceDiscovery::findSound(const QString& nameOrDescription) {
    const std::string wanted = nameOrDescription.toStdString();
    for (const PulseConnection::Source& source : soundSources()) {
        if (source.name == wanted || source.description == wanted)
            return soundOf(source);
    }
    return std::nullopt;
}
