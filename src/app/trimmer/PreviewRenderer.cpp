#include "app/trimmer/PreviewRenderer.h"

#include "core/model/OutputAspectRatio.h"

#include <cmath>

namespace {
// A picture over the frame's pixels, keeping the frame alive as long as the picture lives.
QImage pictureOf(const VideoFrame& frame) {
    if (frame.isNull())
        return {};
    auto* keeper = new VideoFrame(frame);
    return QImage(
        keeper->bytes(), keeper->width(), keeper->height(), keeper->bytesPerRow(),
        QImage::Format_RGB32, [](void* info) { delete static_cast<VideoFrame*>(info); }, keeper);
}
} // namespace

std::unique_ptr<PreviewRenderer>
PreviewRenderer::open(const std::filesystem::path& screen,
                      const std::optional<std::filesystem::path>& camera, std::string& error) {
    std::unique_ptr<PreviewRenderer> renderer(new PreviewRenderer());
    renderer->m_screenPath = screen;
    renderer->m_cameraPath = camera;
    renderer->m_screen = VideoTrackReader::open(screen, error);
    if (!renderer->m_screen)
        return nullptr;
    if (camera) {
        std::string ignored;
        // A camera movie that cannot be read is left out, as the export leaves it out.
        renderer->m_camera = VideoTrackReader::open(*camera, ignored);
    }
    renderer->m_settings.originalVideoSize = {double(renderer->width()),
                                              double(renderer->height())};
    renderer->m_compositor = std::make_unique<RoundedCameraCompositor>(renderer->m_settings);
    return renderer;
}

PreviewRenderer::~PreviewRenderer() {
    m_compositor.reset();
}

Size PreviewRenderer::cameraNaturalSize() const {
    if (!m_camera)
        return {0.0, 0.0};
    return {double(m_camera->width()), double(m_camera->height())};
}

void PreviewRenderer::setSettings(const RoundedCameraCompositorSettings& settings) {
    // The compositor caches backgrounds and zoom state that depend on the settings: a fresh one
    // starts clean.
    m_compositor.reset();
    m_settings = settings;
    m_compositor = std::make_unique<RoundedCameraCompositor>(m_settings);
}

void PreviewRenderer::rebuild() {
    std::string error;
    if (auto screen = VideoTrackReader::open(m_screenPath, error))
        m_screen = std::move(screen);
    if (m_cameraPath) {
        if (auto camera = VideoTrackReader::open(*m_cameraPath, error))
            m_camera = std::move(camera);
    }
}

PreviewRenderer::Frame PreviewRenderer::render(double seconds, bool styled, bool exact) {
    const MediaTime time = MediaTime::fromSeconds(seconds, 600);
    // A dragged scrubber takes what is within a tenth of a second, as loose seeks do.
    const VideoFrame screen =
        exact ? m_screen->frameAt(time) : m_screen->frameNear(time, MediaTime::make(60, 600));
    Frame frame;
    if (screen.isNull())
        return frame;
    frame.start = screen.presentationTime;
    frame.duration = screen.duration;
    if (!styled) {
        frame.image = pictureOf(screen);
        return frame;
    }
    CompositionRequest request;
    request.compositionTime = seconds;
    request.renderSize =
        outputSize(m_settings.outputAspectRatio, {double(screen.width()), double(screen.height())});
    request.sourceFrames.push_back(pictureOf(screen));
    if (m_camera && m_camera->duration() > time)
        request.sourceFrames.push_back(pictureOf(m_camera->frameAt(time)));
    CompositionResult result = m_compositor->processRequest(request);
    if (result.composedFrame)
        // A copy of its own: the compositor paints its next frame over the canvas it handed out.
        frame.image = result.composedFrame->copy();
    return frame;
}
