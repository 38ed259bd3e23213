#include "render/RasterZoomRenderer.h"

#include "core/support/Log.h"
#include "media/VideoFrame.h"

#include <libyuv/convert_argb.h>
#include <libyuv/scale_argb.h>

#include <algorithm>
#include <cmath>
#include <ctime>

struct RasterZoomRenderer::State {
    Size captureSize;
    Point captureOrigin;
    bool clickZoomEnabled = false;
    bool followCursorEnabled = false;
    bool hudEnabled = false;
    bool hudIncludeInRecording = false;
    double zoomScaleCurrent = 1.0;
    double zoomScaleTarget = 1.0;
    Point anchorNormalizedCurrent{0.5, 0.5};
    Point anchorNormalizedTarget{0.5, 0.5};
    Point cursorNormalizedPoint{0.5, 0.5};
    double lastTimestampSec = 0.0;
    bool zoomAnimActive = false;
    double zoomAnimStartTime = 0.0;
    double zoomAnimFromScale = 1.0;
    double zoomAnimToScale = 1.0;
    double anchorHoldUntil = 0.0;
    double maxZoomScale = 2.25;
    double zoomEaseInDuration = 0.45;
    double anchorHalfLife = 0.12;
    double scaleHalfLife = 0.12;
    bool debugEnabled = false;
};

namespace {
double monotonicSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}
} // namespace

RasterZoomRenderer::RasterZoomRenderer(Clock clock)
    : m_clock(clock ? clock : &monotonicSeconds), m_state(std::make_unique<State>()) {}

RasterZoomRenderer::~RasterZoomRenderer() = default;

double RasterZoomRenderer::now() const {
    return m_clock();
}

void RasterZoomRenderer::setCaptureFrame(Size size, Point origin) {
    std::lock_guard lock(m_mutex);
    m_state->captureSize = size;
    m_state->captureOrigin = origin;
    if (m_state->debugEnabled)
        logLine("🔎 ZoomRenderer.setCaptureFrame size={}x{} origin=({},{})", int(size.width),
                int(size.height), int(origin.x), int(origin.y));
}

void RasterZoomRenderer::setClickZoom(bool enabled) {
    std::lock_guard lock(m_mutex);
    m_state->clickZoomEnabled = enabled;
    if (!enabled)
        m_state->zoomScaleTarget = 1.0;
    if (m_state->debugEnabled)
        logLine("🔎 ZoomRenderer.setClickZoom enabled={}", enabled ? "true" : "false");
}

void RasterZoomRenderer::setFollowCursor(bool enabled) {
    std::lock_guard lock(m_mutex);
    m_state->followCursorEnabled = enabled;
}

void RasterZoomRenderer::setHUDEnabled(bool enabled) {
    std::lock_guard lock(m_mutex);
    m_state->hudEnabled = enabled;
}

void RasterZoomRenderer::setHUDIncludeInRecording(bool enabled) {
    std::lock_guard lock(m_mutex);
    m_state->hudIncludeInRecording = enabled;
}

void RasterZoomRenderer::setDebugEnabled(bool enabled) {
    std::lock_guard lock(m_mutex);
    m_state->debugEnabled = enabled;
}

void RasterZoomRenderer::setZoomStrength(int level) {
    std::lock_guard lock(m_mutex);
    State& s = *m_state;
    s.maxZoomScale = level == 0 ? 1.6 : level == 2 ? 3.0 : 2.25;
    s.zoomScaleTarget = std::min(s.zoomScaleTarget, s.maxZoomScale);
    if (s.clickZoomEnabled)
        s.zoomScaleTarget = s.maxZoomScale;
}

void RasterZoomRenderer::setMaxZoomScale(double scale) {
    std::lock_guard lock(m_mutex);
    State& s = *m_state;
    s.maxZoomScale = std::clamp(scale, 1.0, 3.0);
    s.zoomScaleTarget = std::min(s.zoomScaleTarget, s.maxZoomScale);
}

void RasterZoomRenderer::setZoomEase(double duration) {
    std::lock_guard lock(m_mutex);
    m_state->zoomEaseInDuration = std::max(0.05, duration);
}

Point RasterZoomRenderer::convertScreenToNormalizedTopLeft(Point p) const {
    const State& s = *m_state;
    if (!(s.captureSize.width > 0 && s.captureSize.height > 0))
        return Point{0.5, 0.5};
    const double nx = (p.x - s.captureOrigin.x) / std::max(1.0, s.captureSize.width);
    const double ny = 1.0 - (p.y - s.captureOrigin.y) / std::max(1.0, s.captureSize.height);
    return Point{std::clamp(nx, 0.0, 1.0), std::clamp(ny, 0.0, 1.0)};
}

void RasterZoomRenderer::updateCursor(Point screenPoint) {
    std::lock_guard lock(m_mutex);
    State& s = *m_state;
    s.cursorNormalizedPoint = convertScreenToNormalizedTopLeft(screenPoint);
    if (s.followCursorEnabled) {
        s.anchorNormalizedTarget = s.cursorNormalizedPoint;
        if (s.debugEnabled)
            logLine("🖱️ ZoomRenderer.updateCursor cursorTL=({:.3f},{:.3f})",
                    s.cursorNormalizedPoint.x, s.cursorNormalizedPoint.y);
    }
}

void RasterZoomRenderer::triggerClickZoom(Point at) {
    const double start = now();
    std::lock_guard lock(m_mutex);
    State& s = *m_state;
    // The anchor jumps to the click; it does not glide there.
    s.anchorNormalizedTarget = at;
    s.anchorNormalizedCurrent = at;
    s.clickZoomEnabled = true;
    s.zoomScaleTarget = std::max(1.0, s.maxZoomScale);
    s.zoomAnimFromScale = s.zoomScaleCurrent;
    s.zoomAnimToScale = s.zoomScaleTarget;
    s.zoomAnimStartTime = start;
    s.zoomAnimActive = true;
    s.anchorHoldUntil = start + 0.1;
}

void RasterZoomRenderer::toggleClickZoom(Point at) {
    bool zoomed = false;
    {
        std::lock_guard lock(m_mutex);
        zoomed = m_state->zoomScaleTarget > 1.05 || m_state->zoomScaleCurrent > 1.05;
        if (zoomed)
            zoomOut(now());
    }
    if (!zoomed)
        triggerClickZoom(at);
}

void RasterZoomRenderer::endClickZoom() {
    std::lock_guard lock(m_mutex);
    if (m_state->zoomScaleTarget > 1.05 || m_state->zoomScaleCurrent > 1.05)
        zoomOut(now());
}

void RasterZoomRenderer::zoomOut(double start) {
    State& s = *m_state;
    s.clickZoomEnabled = true;
    s.zoomScaleTarget = 1.0;
    s.zoomAnimFromScale = s.zoomScaleCurrent;
    s.zoomAnimToScale = 1.0;
    s.zoomAnimStartTime = start;
    s.zoomAnimActive = true;
    // The anchor stays where it is while the picture widens again.
    s.anchorHoldUntil = start + 0.08;
}

double RasterZoomRenderer::smoothingAlpha(double dt, double halfLife) {
    if (halfLife <= 0)
        return 1.0;
    return std::clamp(1.0 - std::pow(0.5, dt / halfLife), 0.0, 1.0);
}

bool RasterZoomRenderer::isAnimating() const {
    std::lock_guard lock(m_mutex);
    const State& s = *m_state;
    return s.zoomAnimActive || (s.clickZoomEnabled && s.zoomScaleCurrent > 1.001) ||
           std::abs(s.zoomScaleTarget - s.zoomScaleCurrent) > 0.001;
}

void RasterZoomRenderer::updateAnimation(std::optional<MediaTime> frameTimestamp) {
    const double current =
        frameTimestamp && frameTimestamp->isValid() && frameTimestamp->timescale != 0
            ? frameTimestamp->seconds()
            : now();
    std::lock_guard lock(m_mutex);
    State& s = *m_state;
    if (s.lastTimestampSec == 0)
        s.lastTimestampSec = current;
    // A stall moves the animation by 0.2 s at most.
    const double dt = std::min(std::max(0.0, current - s.lastTimestampSec), 0.2);
    s.lastTimestampSec = current;
    if (s.followCursorEnabled && s.anchorHoldUntil <= current)
        s.anchorNormalizedTarget = s.cursorNormalizedPoint;
    const double a = smoothingAlpha(dt, s.anchorHalfLife);
    s.anchorNormalizedCurrent.x += (s.anchorNormalizedTarget.x - s.anchorNormalizedCurrent.x) * a;
    s.anchorNormalizedCurrent.y += (s.anchorNormalizedTarget.y - s.anchorNormalizedCurrent.y) * a;
    if (s.zoomAnimActive) {
        double t = (current - s.zoomAnimStartTime) / std::max(0.05, s.zoomEaseInDuration);
        if (t >= 1) {
            t = 1;
            s.zoomAnimActive = false;
        }
        t = std::max(t, 0.0);
        const double eased = t * t * (3 - 2 * t);
        s.zoomScaleCurrent =
            s.zoomAnimFromScale + eased * (s.zoomAnimToScale - s.zoomAnimFromScale);
    } else {
        const double b = smoothingAlpha(dt, s.scaleHalfLife);
        s.zoomScaleCurrent += (s.zoomScaleTarget - s.zoomScaleCurrent) * b;
    }
    // A finished zoom-out switches the effect off; the next click switches it on.
    if (s.zoomScaleTarget <= 1.0 && s.zoomScaleCurrent <= 1.001) {
        s.zoomScaleCurrent = 1.0;
        s.clickZoomEnabled = false;
    }
}

RasterZoomRenderer::Crop RasterZoomRenderer::cropFor(int width, int height, double scale,
                                                     Point anchorTL) {
    Crop crop;
    crop.width = width / scale;
    crop.height = height / scale;
    const double ax = std::clamp(anchorTL.x, 0.0, 1.0) * width;
    const double ay = std::clamp(anchorTL.y, 0.0, 1.0) * height;
    // The crop stays inside the frame, so near an edge the anchor is not centred.
    const double cx = std::clamp(ax, crop.width / 2, width - crop.width / 2);
    const double cy = std::clamp(ay, crop.height / 2, height - crop.height / 2);
    crop.x = cx - crop.width / 2;
    crop.y = cy - crop.height / 2;
    return crop;
}

VideoFrameHandle RasterZoomRenderer::processedPixelBuffer(const VideoFrameHandle& source, bool) {
    if (!source || source->isNull())
        return {};
    const int width = source->width();
    const int height = source->height();
    if (!m_pool || m_pool->width() != width || m_pool->height() != height)
        m_pool = std::make_unique<VideoFramePool>(width, height);
    auto output =
        std::make_shared<VideoFrame>(m_pool->makeFrame(source->presentationTime, source->duration));
    if (output->isNull())
        return {};

    bool enabled = false;
    double scale = 1.0;
    Point anchor;
    {
        std::lock_guard lock(m_mutex);
        enabled = m_state->clickZoomEnabled;
        scale = std::clamp(m_state->zoomScaleCurrent, 1.0, m_state->maxZoomScale);
        anchor = m_state->anchorNormalizedCurrent;
    }
    const uint8_t* from = source->bytes();
    const int fromStride = source->bytesPerRow();
    uint8_t* to = output->mutableBytes();
    const int toStride = output->bytesPerRow();
    if (!enabled || scale <= 1.001) {
        // Unzoomed frames still go out in a frame of the pool, as the pump expects.
        libyuv::ARGBCopy(from, fromStride, to, toStride, width, height);
        return output;
    }
    const Crop crop = cropFor(width, height, scale, anchor);
    const int x = std::clamp(int(std::lround(crop.x)), 0, width - 1);
    const int y = std::clamp(int(std::lround(crop.y)), 0, height - 1);
    const int w = std::clamp(int(std::lround(crop.width)), 1, width - x);
    const int h = std::clamp(int(std::lround(crop.height)), 1, height - y);
    libyuv::ARGBScale(from + y * fromStride + x * 4, fromStride, w, h, to, toStride, width, height,
                      libyuv::kFilterBilinear);
    return output;
}

double RasterZoomRenderer::zoomScaleCurrent() const {
    std::lock_guard lock(m_mutex);
    return m_state->zoomScaleCurrent;
}

Point RasterZoomRenderer::anchorNormalizedCurrent() const {
    std::lock_guard lock(m_mutex);
    return m_state->anchorNormalizedCurrent;
}
