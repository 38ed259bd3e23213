#pragma once

#include "core/metadata/CodableColor.h"
#include "core/model/CursorStyle.h"

// The optional recording features, grouped.
struct StudioRecordingConfiguration {
    bool enableAlphaChannel = false;
    bool enableSeparateLayers = false;
    bool enableClickToZoom = false;
    double zoomLevel = 2.0;
    double zoomDuration = 0.5;
    double clickThreshold = 0.5;
    CursorStyle cursorStyle = CursorStyle::circle;
    bool enableCursorAnimations = true;
    double cursorSize = 24.0;
    bool enableScaleAnimation = true;
    bool enableRippleEffect = true;
    CodableColor rippleColor{0.0, 0.5, 1.0, 0.5};

    bool operator==(const StudioRecordingConfiguration&) const = default;
};
