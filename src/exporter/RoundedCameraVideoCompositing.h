#pragma once

#include "media/export/VideoCompositing.h"
#include "render/RoundedCameraCompositor.h"

#include <atomic>
#include <memory>

class VideoFramePool;

// The styled compositor behind an export session: decoded frames go in as pictures that share
// their pixels, and the compositor paints straight into frames the encoder takes, so no frame
// is copied on the way.
//
// Threads: as VideoCompositing; the frame pool is touched only on the compositor's stage.
class RoundedCameraVideoCompositing final : public VideoCompositing {
public:
    explicit RoundedCameraVideoCompositing(const RoundedCameraCompositorSettings& settings =
                                               RoundedCameraCompositorSettings::shared());
    ~RoundedCameraVideoCompositing() override;

    void startRequest(VideoCompositionRequest request) override;
    void cancelAllPendingVideoCompositionRequests() override { m_cancelled = true; }

private:
    QImage outputBuffer(int width, int height, MediaTime time, VideoFrame& target);

    std::atomic<bool> m_cancelled{false};
    std::unique_ptr<VideoFramePool> m_pool;
    // Last: its stage finishes the request in progress before the pool above goes away.
    RoundedCameraCompositor m_compositor;
};
