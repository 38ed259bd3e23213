#include "exporter/RoundedCameraVideoCompositing.h"

#include <cstring>

namespace {
// A picture over the frame's own pixels; the frame stays alive as long as the picture does.
QImage pictureOf(const VideoFrame& frame, QImage::Format format) {
    if (frame.isNull())
        return {};
    auto* keeper = new VideoFrame(frame);
    return QImage(
        keeper->bytes(), keeper->width(), keeper->height(), keeper->bytesPerRow(), format,
        [](void* info) { delete static_cast<VideoFrame*>(info); }, keeper);
}
} // namespace

RoundedCameraVideoCompositing::RoundedCameraVideoCompositing(
    const RoundedCameraCompositorSettings& settings)
    : m_compositor(settings) {}

RoundedCameraVideoCompositing::~RoundedCameraVideoCompositing() = default;

QImage RoundedCameraVideoCompositing::outputBuffer(int width, int height, MediaTime time,
                                                   VideoFrame& target) {
    // A cancelled export gets no buffer, which makes the compositor answer at once.
    if (m_cancelled)
        return {};
    if (!m_pool || m_pool->width() != width || m_pool->height() != height)
        m_pool = std::make_unique<VideoFramePool>(width, height);
    target = m_pool->makeFrame(time, MediaTime::invalid());
    if (target.isNull())
        return {};
    return QImage(target.mutableBytes(), width, height, target.bytesPerRow(),
                  QImage::Format_ARGB32_Premultiplied);
}

void RoundedCameraVideoCompositing::startRequest(VideoCompositionRequest request) {
    CompositionRequest composition;
    composition.compositionTime = request.compositionTime.seconds();
    composition.renderSize = {double(request.renderWidth), double(request.renderHeight)};
    // Decoded video is opaque: RGB32 spares the compositor any alpha work on it.
    for (const VideoFrame& frame : request.sourceFrames)
        composition.sourceFrames.push_back(pictureOf(frame, QImage::Format_RGB32));
    auto target = std::make_shared<VideoFrame>();
    const MediaTime time = request.compositionTime;
    composition.newPixelBuffer = [this, target, time](Size size) {
        return outputBuffer(int(size.width), int(size.height), time, *target);
    };
    composition.finish = [target, finish = std::move(request.finish)](CompositionResult result) {
        if (!result.composedFrame || target->isNull()) {
            finish(VideoFrame());
            return;
        }
        // The compositor paints into the buffer it was given; should it ever hand back another
        // picture, its pixels are copied into the frame.
        const QImage& picture = *result.composedFrame;
        if (picture.constBits() != target->bytes()) {
            const QImage converted = picture.convertToFormat(QImage::Format_ARGB32_Premultiplied);
            const int rows = std::min(converted.height(), target->height());
            const size_t bytes = size_t(std::min(converted.width(), target->width())) * 4;
            for (int y = 0; y < rows; ++y)
                std::memcpy(target->mutableBytes() + size_t(y) * size_t(target->bytesPerRow()),
                            converted.constScanLine(y), bytes);
        }
        result.composedFrame.reset();
        finish(*target);
    };
    m_compositor.startRequest(std::move(composition));
}
