#pragma once

#include "core/geometry/AffineTransform.h"
#include "core/geometry/Rect.h"
#include <QUuid>

#include <optional>

// What the zoom camera shows at one moment: the magnification, the normalised top-left focus
// in the middle of the output, and the transform in render pixels that produces it.
struct ZoomCameraFrame {
    double scale = 1.0;
    Point center{0.5, 0.5};
    AffineTransform transform;
    double strength = 0.0;
    std::optional<QUuid> activeSegmentID;
    bool isConnectedTransition = false;

    static ZoomCameraFrame identity() { return {}; }

    bool operator==(const ZoomCameraFrame&) const = default;
};

// How the camera moves. The preview scrubs exactly, so it runs without springs; the export
// smooths the whole path with them.
struct ZoomCameraOptions {
    bool connectZooms = true;
    double connectedZoomGap = 1.35;
    double connectedPanDuration = 1.0;
    double safeZoneRatio = 0.25;
    bool freezeFocusDuringZoomOut = true;
    bool useSpringSmoothing = false;
    double zoomSmoothness = 0.5;

    static ZoomCameraOptions preview() { return {}; }
    // Named so because `export` is a reserved word.
    static ZoomCameraOptions exportOptions() {
        ZoomCameraOptions options;
        options.useSpringSmoothing = true;
        return options;
    }

    bool operator==(const ZoomCameraOptions&) const = default;
};
