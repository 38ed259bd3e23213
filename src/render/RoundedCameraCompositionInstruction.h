#pragma once

#include "core/time/MediaTimeRange.h"

#include <QImage>

#include <cstdint>
#include <functional>
#include <vector>

// What an export asks of the styled compositor for a span of its time line: one instruction
// covers the whole composition. Its source tracks are listed screen first, camera second, and
// their frames reach the compositor in that order, by index; the identifiers themselves mean
// nothing to it. A plain value.
struct RoundedCameraCompositionInstruction {
    static constexpr std::int32_t invalidTrackID = 0;

    RoundedCameraCompositionInstruction(MediaTimeRange timeRange,
                                        std::vector<std::int32_t> sourceTrackIDs)
        : timeRange(timeRange), requiredSourceTrackIDs(std::move(sourceTrackIDs)) {}

    MediaTimeRange timeRange;
    bool enablePostProcessing = false;
    // Every frame is composed, none passed through, even where nothing seems to change.
    bool containsTweening = true;
    std::vector<std::int32_t> requiredSourceTrackIDs;
    std::int32_t passthroughTrackID = invalidTrackID;

    // The source frames of one request in the compositor's order, from the host's lookup by
    // track; a track without a frame at this time gives a null image in its place.
    std::vector<QImage>
    sourceFrames(const std::function<QImage(std::int32_t trackID)>& sourceFrameByTrackID) const {
        std::vector<QImage> frames;
        frames.reserve(requiredSourceTrackIDs.size());
        for (const std::int32_t trackID : requiredSourceTrackIDs)
            frames.push_back(sourceFrameByTrackID ? sourceFrameByTrackID(trackID) : QImage());
        return frames;
    }
};
