#pragma once

#include "core/geometry/Rect.h"
#include "core/recording/engines/SampleTiming.h"
#include "core/time/MediaTime.h"

#include <optional>

// The live zoom of click-to-zoom recordings: a zoom scale and an anchor animated per frame,
// and each frame cropped around the anchor and scaled back to full size.
// Thread: configured, fed cursor points and clicks on the main thread; the frame calls come
// from the window pump's thread. Implementations guard their state between the two.
class ZoomRenderer {
public:
    virtual ~ZoomRenderer() = default;

    virtual void setCaptureFrame(Size size, Point origin) = 0;
    virtual void setClickZoom(bool enabled) = 0;
    virtual void setFollowCursor(bool enabled) = 0;
    virtual void setHUDEnabled(bool enabled) = 0;
    virtual void setHUDIncludeInRecording(bool enabled) = 0;
    virtual void setDebugEnabled(bool enabled) = 0;
    // The magnification a click zooms to, 1 to 3 (the recording's zoom level); a zoom under
    // way keeps its course and the next one uses the new scale.
    virtual void setMaxZoomScale(double scale) = 0;

    // A global screen point, origin bottom left; the anchor follows it while zoomed.
    virtual void updateCursor(Point screenPoint) = 0;
    // Zooms in at a point normalised to the captured rectangle, origin top left.
    virtual void triggerClickZoom(Point normalizedTL) = 0;
    // Zooms out if zoomed in; the anchor stays.
    virtual void endClickZoom() = 0;

    // True while frames differ from their source or are about to (zooming, zoomed, easing).
    virtual bool isAnimating() const = 0;
    // One step of the animation to the frame's time (host clock); absent means now.
    virtual void updateAnimation(std::optional<MediaTime> frameTimestamp) = 0;
    // The frame as the zoom shows it, in a frame of the renderer's own; empty when no frame
    // was available, and the caller writes the source instead.
    virtual VideoFrameHandle processedPixelBuffer(const VideoFrameHandle& source,
                                                  bool includeHUD) = 0;
};
