#pragma once

#include "core/geometry/Rect.h"

enum class CursorOverlayFitMode { aspectFit, aspectFill };

// Maps the cursor overlay's normalised top-left positions into the spaces where it is drawn:
// a view (y grows downwards) or a composed frame (bottom-left origin, y grows upwards), through
// the same fit and zoom that the screen picture gets, so that the drawn cursor sits on the
// recorded one. Pure functions; thread-safe.
namespace CursorOverlayGeometry {

// The side of the cursor's frame on a canvas of `referenceHeight` at scale 1. The frame holds
// the arrow and the padding around it.
inline constexpr double baseCursorFrameSide = 32.0;
inline constexpr double defaultReferenceHeight = 1080.0;
// Fraction of the frame left free above and to the left of the hot spot: the arrow image has
// a margin of 0.15 of its glyph on each side of a canvas 1.3 glyphs wide.
inline constexpr double defaultHotspotPadding = 0.15 / 1.3;

// `sourceSize` scaled to fit (or fill) `target`, centred in it; `target` itself when a size is
// empty.
Rect fitRect(Size sourceSize, Rect target, CursorOverlayFitMode mode);

// The point of a normalised position inside `contentRect`, for a space whose y grows downwards.
Point swiftUIHotspotPoint(Point normalizedTopLeft, Rect contentRect);
// The same for a space whose y grows upwards: measured down from the rectangle's top.
Point coreImageHotspotPoint(Point normalizedTopLeft, Rect contentRect);

// A bottom-left point of the render canvas under the camera's zoom to `scale` around
// `centerTopLeft`, which lands in the canvas centre. Unchanged for no zoom or an empty size.
Point applyZoom(Point bottomLeftPoint, double scale, Point centerTopLeft, Size renderSize);
// The same zoom inside a source picture's extent, keeping the focus where it is.
Point applySourceZoom(Point bottomLeftPoint, Rect sourceExtent, double scale, Point centerTopLeft);

// A point of `sourceExtent` carried to where `fitRect` places that extent inside `targetFrame`.
Point mapSourcePointToFittedFrame(Point point, Rect sourceExtent, Rect targetFrame,
                                  CursorOverlayFitMode mode);

// A capture rectangle given relative to its display's top-left corner, as global coordinates
// with a bottom-left origin; `displayFrame` is the display's own global bottom-left frame.
Rect globalBottomLeftRect(Rect screenCaptureKitRect, Rect displayFrame);

// The square frame that the cursor is drawn into on a container of this height.
Size cursorFrameSize(double containerHeight, double scale,
                     double referenceHeight = defaultReferenceHeight);
// Bottom-left origin of a cursor frame whose hot spot (the arrow's tip, `padding` of the frame
// in from its top-left corner) lies on `hotspot`.
Point coreImageDrawOriginForHotspot(Point hotspot, Size frameSize,
                                    double padding = defaultHotspotPadding);
// The factor that scales a cursor image of `imageSize` to fill `frameSize`, aspect kept.
double coreImageCursorScale(Size imageSize, Size frameSize);

} // namespace CursorOverlayGeometry
