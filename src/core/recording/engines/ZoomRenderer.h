#pragma once

#include "core/geometry/Rect.h"

// The live zoom of click-to-zoom recordings. The coordinator only configures it here; frames
// and clicks reach it from the frame path.
// Thread: configured on the main thread before capture starts.
class ZoomRenderer {
public:
    virtual ~ZoomRenderer() = default;

    virtual void setCaptureFrame(Size size, Point origin) = 0;
    virtual void setClickZoom(bool enabled) = 0;
    virtual void setFollowCursor(bool enabled) = 0;
    virtual void setHUDEnabled(bool enabled) = 0;
    virtual void setHUDIncludeInRecording(bool enabled) = 0;
    virtual void setDebugEnabled(bool enabled) = 0;
};
