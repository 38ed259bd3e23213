#pragma once

#include "core/geometry/Rect.h"

#include <QImage>
#include <QRectF>
#include <QTransform>

// Pixel operations the compositor's layers are made of, on QImage. Pure functions; thread-safe.
namespace RasterEffects {

// The layers compute in a space with the origin at the lower left and y upward, as the zoom and
// cursor geometry do; images have theirs at the top left. This maps one to the other (it is its
// own inverse) for a space `height` high.
QTransform flipY(double height);
// A bottom-left rectangle of a canvas `height` high, in the canvas's top-left pixels.
QRectF topLeftRect(const Rect& rect, double height);

// A Gaussian blur of an 8-bit alpha image in place, by three box passes each way. Pixels beyond
// the edges count as transparent, so a shape near the edge fades instead of smearing.
void blurAlpha(QImage& alpha8, double sigma);

// A premultiplied image blurred the same way, on all four channels; the result is larger by
// 3 sigma on each side, and `offset` says where its top-left corner lies relative to the input's.
QImage gaussianBlurred(const QImage& image, double sigma, QPoint* offset);

// The image smeared along a line through its pixels: the average of copies shifted from
// -`radius` to +`radius` pixels in the direction `angle` (radians, in the image's own top-left
// space). The result is larger by the smear on each side; `offset` as above.
QImage motionBlurred(const QImage& image, double radius, double angle, QPoint* offset);

} // namespace RasterEffects
