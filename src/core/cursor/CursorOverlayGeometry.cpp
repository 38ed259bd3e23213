#include "core/cursor/CursorOverlayGeometry.h"

#include "core/zoom/ZoomTransform.h"

#include <algorithm>

namespace CursorOverlayGeometry {

namespace {

constexpr double noZoomThreshold = 1.001;

bool hasArea(Size size) {
    return size.width > 0.0 && size.height > 0.0;
}

double fitFactor(Size source, Size target, CursorOverlayFitMode mode) {
    const double sx = target.width / source.width;
    const double sy = target.height / source.height;
    return mode == CursorOverlayFitMode::aspectFit ? std::min(sx, sy) : std::max(sx, sy);
}

} // namespace

Rect fitRect(Size sourceSize, Rect target, CursorOverlayFitMode mode) {
    if (!hasArea(sourceSize) || !hasArea(target.size)) {
        return target;
    }
    const double k = fitFactor(sourceSize, target.size, mode);
    const Size fitted{sourceSize.width * k, sourceSize.height * k};
    return {target.origin.x + (target.size.width - fitted.width) / 2.0,
            target.origin.y + (target.size.height - fitted.height) / 2.0, fitted.width,
            fitted.height};
}

Point swiftUIHotspotPoint(Point normalizedTopLeft, Rect contentRect) {
    return {contentRect.origin.x + normalizedTopLeft.x * contentRect.size.width,
            contentRect.origin.y + normalizedTopLeft.y * contentRect.size.height};
}

Point coreImageHotspotPoint(Point normalizedTopLeft, Rect contentRect) {
    return {contentRect.origin.x + normalizedTopLeft.x * contentRect.size.width,
            contentRect.origin.y + contentRect.size.height -
                normalizedTopLeft.y * contentRect.size.height};
}

Point applyZoom(Point bottomLeftPoint, double scale, Point centerTopLeft, Size renderSize) {
    if (!(scale > noZoomThreshold) || !hasArea(renderSize)) {
        return bottomLeftPoint;
    }
    const Point c = clampFocus(centerTopLeft, scale);
    const double fx = c.x * renderSize.width;
    const double fy = (1.0 - c.y) * renderSize.height;
    return {(bottomLeftPoint.x - fx) * scale + renderSize.width / 2.0,
            (bottomLeftPoint.y - fy) * scale + renderSize.height / 2.0};
}

Point applySourceZoom(Point bottomLeftPoint, Rect sourceExtent, double scale, Point centerTopLeft) {
    if (!(scale > noZoomThreshold) || !hasArea(sourceExtent.size)) {
        return bottomLeftPoint;
    }
    const Point c = clampFocus(centerTopLeft, scale);
    const double fx = sourceExtent.origin.x + c.x * sourceExtent.size.width;
    const double fy = sourceExtent.origin.y + (1.0 - c.y) * sourceExtent.size.height;
    return {(bottomLeftPoint.x - fx) * scale + fx, (bottomLeftPoint.y - fy) * scale + fy};
}

Point mapSourcePointToFittedFrame(Point point, Rect sourceExtent, Rect targetFrame,
                                  CursorOverlayFitMode mode) {
    if (!hasArea(sourceExtent.size) || !hasArea(targetFrame.size)) {
        return point;
    }
    const double k = fitFactor(sourceExtent.size, targetFrame.size, mode);
    const double offsetX = (targetFrame.size.width - sourceExtent.size.width * k) / 2.0;
    const double offsetY = (targetFrame.size.height - sourceExtent.size.height * k) / 2.0;
    return {(point.x - sourceExtent.origin.x) * k + targetFrame.origin.x + offsetX,
            (point.y - sourceExtent.origin.y) * k + targetFrame.origin.y + offsetY};
}

Rect globalBottomLeftRect(Rect screenCaptureKitRect, Rect displayFrame) {
    const double displayTop = displayFrame.origin.y + displayFrame.size.height;
    return {displayFrame.origin.x + screenCaptureKitRect.origin.x,
            displayTop - screenCaptureKitRect.origin.y - screenCaptureKitRect.size.height,
            screenCaptureKitRect.size.width, screenCaptureKitRect.size.height};
}

Size cursorFrameSize(double containerHeight, double scale, double referenceHeight) {
    const double unit = referenceHeight > 0.0 ? containerHeight / referenceHeight : 1.0;
    const double side = baseCursorFrameSide * scale * unit;
    return {side, side};
}

Point coreImageDrawOriginForHotspot(Point hotspot, Size frameSize, double padding) {
    return {hotspot.x - frameSize.width * padding, hotspot.y - frameSize.height * (1.0 - padding)};
}

double coreImageCursorScale(Size imageSize, Size frameSize) {
    if (!hasArea(imageSize)) {
        return 1.0;
    }
    return std::min(frameSize.width / imageSize.width, frameSize.height / imageSize.height);
}

} // namespace CursorOverlayGeometry
