#pragma once

#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/time/MediaTime.h"
#include "media/VideoFrame.h"
#include "platform/v4l2/V4L2CameraDiscovery.h"

#include <memory>
#include <optional>
#include <string>

// One open camera through libavdevice: the V4L2 node (or the test camera's lavfi graph), its
// decoder (Motion-JPEG or raw YUYV) and the conversion to BGRA. Frames carry host-clock
// (CLOCK_MONOTONIC) times, the clock screen frames are stamped with.
//
// A device is open at most once in the process: V4L2 refuses a second streaming opener, so a
// second open here fails as busy, the same answer another program's hold gives.
// Thread: opened on any thread; read() on the one capture thread.
class CameraInput final {
public:
    struct Options {
        std::optional<VideoDimensions> size; // the driver's choice when absent
        int frameRate = 30;
    };

    // Throws RecordingError naming the device when it is missing, busy or unusable.
    static std::unique_ptr<CameraInput> open(const CameraDeviceInfo& device,
                                             const Options& options);
    ~CameraInput();
    CameraInput(const CameraInput&) = delete;
    CameraInput& operator=(const CameraInput&) = delete;

    VideoDimensions dimensions() const;
    MediaTime frameDuration() const;
    const CameraDeviceInfo& device() const { return m_device; }

    // dropped: a frame came but could not be decoded or converted (a torn Motion-JPEG frame).
    enum class Status { frame, again, dropped, failed };
    struct ReadResult {
        Status status = Status::again;
        VideoFrame frame;  // BGRA, for Status::frame
        std::string error; // for Status::failed
    };
    // Returns at once when no frame is waiting (again), or with a failure when the device went
    // away. Never throws.
    ReadResult read();

private:
    struct Private;
    explicit CameraInput(CameraDeviceInfo device);
    MediaTime hostTime(int64_t pts, int num, int den) const;

    CameraDeviceInfo m_device;
    std::unique_ptr<Private> d;
};
