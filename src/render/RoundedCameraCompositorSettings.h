#pragma once

#include "core/cursor/CursorOverlaySettings.h"
#include "core/geometry/Rect.h"
#include "core/metadata/BackgroundSettings.h"
#include "core/metadata/CameraExportSettings.h"
#include "core/metadata/CursorClick.h"
#include "core/metadata/CursorPosition.h"
#include "core/metadata/ZoomSegment.h"
#include "core/model/OutputAspectRatio.h"

#include <optional>
#include <vector>

// The camera placement a compositor uses until the editor fills in its own: lower right, a bit
// under a quarter of the width, shrinking to 0.7 while the screen is zoomed.
inline const CameraExportSettings defaultCameraExportSettings{Point{0.86, 0.80}, 0.22, 0.7, 0.35,
                                                              CameraShape::squircle};

// Everything a styled export needs to know beyond its frames. User sizes (padding, radii,
// shadow radii and offsets) are given for a canvas 1080 pixels high.
//
// A compositor reads the object it was given on every frame and copies nothing, so an export
// goes through `shared`, written before the export starts and only read while it runs; the
// editor's preview owns an object of its own, so that changing the preview never touches an
// export in progress. Not thread-safe: write it only while no compositor that reads it is
// composing.
class RoundedCameraCompositorSettings final {
public:
    static RoundedCameraCompositorSettings& shared();

    CameraExportSettings cameraSettings = defaultCameraExportSettings;
    std::vector<ZoomSegment> zoomSegments;
    Size cameraNaturalSize{1920.0, 1080.0};
    std::vector<CursorPosition> cursorPositions;
    CursorOverlaySettings cursorOverlaySettings;
    std::vector<CursorClick> clickEvents;
    std::optional<BackgroundSettings> backgroundSettings;
    bool backgroundEnabled = false;
    double videoPadding = 120.0;
    double videoCornerRadius = 28.0;
    OutputAspectRatio outputAspectRatio = OutputAspectRatio::original;
    Size originalVideoSize{0.0, 0.0};
    bool verticalStack = false;
    double screenShadowOpacity = 0.4;
    double screenShadowRadius = 30.0;
    double screenShadowOffsetY = 10.0;
    double cameraShadowOpacity = 0.4;
    double cameraShadowRadius = 12.0;
};
