#include "platform/v4l2/V4L2CameraDiscovery.h"

#include <QDir>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

// A file descriptor closed on every path.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

int retryingIoctl(int fd, unsigned long request, void* argument) {
    int result;
    do {
        result = ::ioctl(fd, request, argument);
    } while (result < 0 && errno == EINTR);
    return result;
}

// The device's own capabilities when the driver reports them: the physical device's field lists
// what all its nodes can do together, which would let a metadata node pass as a camera.
uint32_t nodeCapabilities(const v4l2_capability& caps) {
    return (caps.capabilities & V4L2_CAP_DEVICE_CAPS) ? caps.device_caps : caps.capabilities;
}

// Node numbers in numeric order: video10 after video2.
int nodeNumber(const QString& name) {
    return name.mid(5).toInt();
}

} // namespace

bool V4L2CameraDiscovery::isTestCameraEnabled() {
    return qEnvironmentVariable("TAVELQUISTON_TEST_CAMERA") == QLatin1String("1");
}

QString V4L2CameraDiscovery::testCameraGraph(int width, int height) {
    // TAVELQUISTON_TEST_CAMERA_UNPLUG_AFTER=SECONDS ends the picture then, as a camera pulled
    // out of its socket would, so that path is testable too.
    bool limited = false;
    const double seconds =
        qEnvironmentVariable("TAVELQUISTON_TEST_CAMERA_UNPLUG_AFTER").toDouble(&limited);
    const QString duration =
        limited && seconds > 0 ? QStringLiteral(":duration=%1").arg(seconds) : QString();
    return QStringLiteral("testsrc2=size=%1x%2:rate=30%3,realtime,format=yuyv422")
        .arg(width)
        .arg(height)
        .arg(duration);
}

std::optional<CameraDeviceInfo> V4L2CameraDiscovery::inspectNode(const QString& path) {
    // Non-blocking, so a node held by a stuck driver cannot stall discovery.
    FileDescriptor fd(::open(path.toLocal8Bit().constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0)
        return std::nullopt;
    v4l2_capability caps{};
    if (retryingIoctl(fd.get(), VIDIOC_QUERYCAP, &caps) < 0)
        return std::nullopt;
    const uint32_t nodeCaps = nodeCapabilities(caps);
    if (!(nodeCaps & V4L2_CAP_VIDEO_CAPTURE) || !(nodeCaps & V4L2_CAP_STREAMING))
        return std::nullopt;

    CameraDeviceInfo info;
    info.path = path;
    info.name = QString::fromUtf8(reinterpret_cast<const char*>(caps.card)).trimmed();
    if (info.name.isEmpty())
        info.name = path;
    for (uint32_t index = 0;; ++index) {
        v4l2_fmtdesc format{};
        format.index = index;
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (retryingIoctl(fd.get(), VIDIOC_ENUM_FMT, &format) < 0)
            break;
        info.formats.append(
            QString::fromUtf8(reinterpret_cast<const char*>(format.description)).trimmed());
        if (format.pixelformat == V4L2_PIX_FMT_MJPEG)
            info.offersMJPEG = true;
    }
    return info;
}

std::vector<CameraDeviceInfo> V4L2CameraDiscovery::discoverCameras() {
    std::vector<CameraDeviceInfo> cameras;
    QStringList nodes = QDir(QStringLiteral("/dev"))
                            .entryList({QStringLiteral("video*")}, QDir::System | QDir::Files);
    std::sort(nodes.begin(), nodes.end(),
              [](const QString& a, const QString& b) { return nodeNumber(a) < nodeNumber(b); });
    for (const QString& node : nodes) {
        if (auto info = inspectNode(QStringLiteral("/dev/") + node))
            cameras.push_back(std::move(*info));
    }
    if (isTestCameraEnabled()) {
        CameraDeviceInfo test;
        test.path = testCameraGraph(1280, 720);
        test.name = QString::fromLatin1(testCameraName);
        test.formats = {QStringLiteral("YUYV 4:2:2")};
        test.isTestCamera = true;
        cameras.push_back(std::move(test));
    }
    return cameras;
}

std::optional<CameraDeviceInfo> V4L2CameraDiscovery::findCamera(const QString& pathOrName) {
    const std::vector<CameraDeviceInfo> cameras = discoverCameras();
    for (const CameraDeviceInfo& camera : cameras) {
        if (camera.path == pathOrName || camera.name == pathOrName)
            return camera;
    }
    // A node given by path that is not listed (a symlink under /dev/v4l/by-id, say).
    if (pathOrName.startsWith(QLatin1Char('/')))
        return inspectNode(pathOrName);
    return std::nullopt;
}
