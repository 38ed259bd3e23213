#pragma once

#include "core/recording/engines/ZoomRenderer.h"

#include <memory>
#include <mutex>

class VideoFramePool;

// The live click-to-zoom on BGRA frames: the frame is cropped around an animated anchor and
// scaled back to full size (bilinear, libyuv) into a frame of its own pool, which is rebuilt
// only when the frame size changes.
//
// Animation: a click eases the scale to `maxZoomScale` over `zoomEaseInDuration` with a
// smoothstep; otherwise the scale and the anchor approach their targets by half-lives, so the
// motion does not depend on the frame rate. Anchors are normalised with the origin at the top
// left of the captured rectangle. Times are host-clock seconds (CLOCK_MONOTONIC), the clock of
// captured frames.
//
// Thread: fed on the main thread, stepped and rendered on the window pump's thread; a mutex
// guards the state for the few instructions each call takes, never across the scaling.
class RasterZoomRenderer final : public ZoomRenderer {
public:
    // `now` gives host-clock seconds; tests drive it.
    using Clock = double (*)();
    explicit RasterZoomRenderer(Clock clock = nullptr);
    ~RasterZoomRenderer() override;

    void setCaptureFrame(Size size, Point origin) override;
    void setClickZoom(bool enabled) override;
    void setFollowCursor(bool enabled) override;
    void setHUDEnabled(bool enabled) override;
    void setHUDIncludeInRecording(bool enabled) override;
    void setDebugEnabled(bool enabled) override;
    void setMaxZoomScale(double scale) override;
    // 0 gives 1.6, 2 gives 3.0, anything else 2.25.
    void setZoomStrength(int level);
    void setZoomEase(double duration);

    void updateCursor(Point screenPoint) override;
    void triggerClickZoom(Point normalizedTL) override;
    void toggleClickZoom(Point normalizedTL);
    void endClickZoom() override;

    bool isAnimating() const override;
    void updateAnimation(std::optional<MediaTime> frameTimestamp) override;
    VideoFrameHandle processedPixelBuffer(const VideoFrameHandle& source, bool includeHUD) override;

    double zoomScaleCurrent() const;
    Point anchorNormalizedCurrent() const;
    static double smoothingAlpha(double dt, double halfLife);

    // The crop, in pixels with the origin at the top left, that fills a frame of `width` by
    // `height` at `scale` around `anchorTL`; kept inside the frame.
    struct Crop {
        double x = 0, y = 0, width = 0, height = 0;
    };
    static Crop cropFor(int width, int height, double scale, Point anchorTL);

private:
    struct State;
    Point convertScreenToNormalizedTopLeft(Point screenPoint) const; // under the lock
    void zoomOut(double now);                                        // under the lock
    double now() const;

    Clock m_clock;
    mutable std::mutex m_mutex;
    std::unique_ptr<State> m_state;
    // The pump's own: touched only by processedPixelBuffer.
    std::unique_ptr<VideoFramePool> m_pool;
};
