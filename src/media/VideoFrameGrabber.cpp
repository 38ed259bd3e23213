#include "media/VideoFrameGrabber.h"

#include "media/export/VideoTrackReader.h"

#include <cmath>
#include <cstring>

std::optional<GrabbedVideoFrame> grabVideoFrame(const QString& path, double seconds,
                                                std::string* error) {
    std::string reason;
    const std::unique_ptr<VideoTrackReader> reader =
        VideoTrackReader::open(path.toStdString(), reason);
    if (!reader) {
        if (error)
            *error = reason;
        return std::nullopt;
    }
    const MediaTime time =
        MediaTime::fromSeconds(std::isfinite(seconds) ? std::max(seconds, 0.0) : 0.0, 90000);
    const VideoFrame frame = reader->frameAt(time);
    if (frame.isNull()) {
        if (error)
            *error = path.toStdString() + ": " + reader->error().value_or("no frame decoded");
        return std::nullopt;
    }
    GrabbedVideoFrame grabbed;
    grabbed.width = frame.width();
    grabbed.height = frame.height();
    grabbed.time = frame.presentationTime.seconds();
    grabbed.bgra.resize(size_t(grabbed.width) * size_t(grabbed.height) * 4);
    for (int y = 0; y < grabbed.height; ++y)
        std::memcpy(grabbed.bgra.data() + size_t(y) * size_t(grabbed.width) * 4,
                    frame.bytes() + size_t(y) * size_t(frame.bytesPerRow()),
                    size_t(grabbed.width) * 4);
    return grabbed;
}
