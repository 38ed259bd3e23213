#pragma once

#include "media/VideoFrame.h"

#include <functional>
#include <vector>

// One output frame an export asks its compositor for: the source frames by track (index 0 the
// screen, later ones the camera; a null frame where a track has nothing at this time), the
// canvas size, and where the answer goes.
struct VideoCompositionRequest {
    MediaTime compositionTime = MediaTime::zero();
    int renderWidth = 0;
    int renderHeight = 0;
    std::vector<VideoFrame> sourceFrames;
    // Receives the composed BGRA frame, or a null frame when composing failed. Called once per
    // request, on the compositor's own serial stage, in the order the requests came.
    std::function<void(VideoFrame composed)> finish;
};

// What the export session needs of a frame compositor: requests answered in order on one
// serial stage. The styled compositor of the render layer implements it; the session knows
// nothing of how frames are drawn.
//
// Threads: `startRequest` and `cancelAllPendingVideoCompositionRequests` from the export's
// reader thread; answers on the compositor's stage.
class VideoCompositing {
public:
    virtual ~VideoCompositing() = default;
    virtual void startRequest(VideoCompositionRequest request) = 0;
    // Requests not yet begun may be answered with a null frame instead of being composed. Every
    // request is still answered exactly once, so its sender can count what is in flight.
    virtual void cancelAllPendingVideoCompositionRequests() = 0;
};
