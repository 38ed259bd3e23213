#pragma once

#include "core/time/MediaTime.h"
#include "core/time/MediaTimeRange.h"

#include <filesystem>
#include <optional>
#include <vector>

class VideoCompositing;

// The time line of an export: ranges of the screen movie laid end to end from zero (several
// for the kept pieces of a cut video), its audio carried along the same ranges, and an optional
// camera movie from zero over the shorter of the two lengths. A plain value.
struct ExportComposition {
    std::filesystem::path screenURL;
    std::vector<MediaTimeRange> screenTimeRanges;
    std::optional<std::filesystem::path> cameraURL;
    MediaTime cameraDuration = MediaTime::zero();

    MediaTime duration() const {
        MediaTime total = MediaTime::zero();
        for (const MediaTimeRange& range : screenTimeRanges)
            total = total + range.duration;
        return total;
    }
    bool operator==(const ExportComposition&) const = default;
};

// How frames of the composition become output frames: the canvas, the output frame rate, and
// the compositor that draws each frame. Without a custom compositor the screen is drawn as it
// is, centred on a black canvas of the render size.
struct ExportVideoComposition {
    int renderWidth = 0;
    int renderHeight = 0;
    MediaTime frameDuration = MediaTime::make(1, 60);
    // Not owned; must outlive the export.
    VideoCompositing* customVideoCompositor = nullptr;
};
