#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/BackgroundSettings.h"
#include "core/metadata/CameraKeyframe.h"
#include "core/metadata/CursorClick.h"
#include "core/metadata/CursorPosition.h"
#include "core/metadata/ZoomEvent.h"
#include "core/metadata/ZoomKeyframe.h"
#include "core/metadata/ZoomSegment.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

// The document that a recording leaves beside its video (".metadata.json"), shared by the
// recorder, the editor and the exporter. Times are seconds on the video's time line; points are
// normalised to the captured frame. MetadataJson.h reads and writes it.
struct RecordingMetadata {
    // Always written as this; a document with another version string reads all the same, since
    // nothing depends on it.
    static constexpr std::string_view version = "1.0";

    double duration = 0.0;
    Size resolution{}; // pixels
    std::int64_t frameRate = 0;
    std::vector<ZoomEvent> zoomEvents{};
    std::vector<ZoomKeyframe> zoomKeyframes{};
    std::vector<ZoomSegment> zoomSegments{};
    std::vector<CameraKeyframe> cameraPositions{};
    std::vector<CursorClick> cursorClicks{};
    std::vector<CursorPosition> cursorPositions{};
    std::optional<BackgroundSettings> backgroundSettings{};

    bool operator==(const RecordingMetadata&) const = default;
};
