#pragma once

#include "core/recording/engines/ZoomRenderer.h"

// The live zoom where no renderer is loaded: frames pass through unzoomed. Thread: main.
class PassThroughZoomRenderer final : public ZoomRenderer {
public:
    void setCaptureFrame(Size, Point) override {}
    void setClickZoom(bool) override {}
    void setFollowCursor(bool) override {}
    void setHUDEnabled(bool) override {}
    void setHUDIncludeInRecording(bool) override {}
    void setDebugEnabled(bool) override {}
    void updateCursor(Point) override {}
    void triggerClickZoom(Point) override {}
    void endClickZoom() override {}
    bool isAnimating() const override { return false; }
    void updateAnimation(std::optional<MediaTime>) override {}
    VideoFrameHandle processedPixelBuffer(const VideoFrameHandle& source, bool) override {
        return source;
    }
};
