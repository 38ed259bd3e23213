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
};
