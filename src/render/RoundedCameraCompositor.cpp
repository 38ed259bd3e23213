#include "render/RoundedCameraCompositor.h"

#include "core/cursor/CursorOverlayGeometry.h"
#include "core/support/Log.h"
#include "render/LayerPainter.h"
#include "render/RasterEffects.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

using namespace CursorOverlayGeometry;
using RasterEffects::flipY;

namespace {

constexpr double noZoomThreshold = 1.001;

Rect boundingRect(const QRectF& rect) {
    return Rect(rect.x(), rect.y(), rect.width(), rect.height());
}

// The cursor image as a translucent black silhouette, for its shadow.
QImage silhouette(const QImage& image, double alpha) {
    QImage out(image.size(), QImage::Format_ARGB32_Premultiplied);
    const int scale = static_cast<int>(std::lround(alpha * 256.0));
    for (int y = 0; y < image.height(); ++y) {
        const auto* source = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        auto* row = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < image.width(); ++x)
            row[x] = qRgba(0, 0, 0, (qAlpha(source[x]) * scale) >> 8);
    }
    return out;
}

// The whole canvas replaced by `image`, except inside `hole`, which something opaque covers
// next anyway.
void paintOpaque(QImage& canvas, const QImage& image, QRect hole = {}) {
    QPainter painter(&canvas);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    hole = hole.intersected(canvas.rect());
    if (hole.isEmpty()) {
        painter.drawImage(QPoint(0, 0), image);
        return;
    }
    const int width = canvas.width();
    const int height = canvas.height();
    for (const QRect& band :
         {QRect(0, 0, width, hole.top()),
          QRect(0, hole.bottom() + 1, width, height - hole.bottom() - 1),
          QRect(0, hole.top(), hole.left(), hole.height()),
          QRect(hole.right() + 1, hole.top(), width - hole.right() - 1, hole.height())}) {
        if (!band.isEmpty())
            painter.drawImage(band.topLeft(), image, band);
    }
}

// The whole canvas pixels that an opaque screen picture covers completely once drawn, so that
// nothing under them needs painting: inside the rounded frame clear of its corners, or inside
// the unframed picture, in both cases a pixel in from the edges that resampling blends. Empty
// when the picture may be translucent.
QRect coveredByScreen(const ScreenLayer& layer) {
    if (layer.image.isNull() || layer.image.hasAlphaChannel())
        return {};
    QRectF covered;
    if (layer.frame) {
        const double inset = layer.cornerRadius + 2.0;
        covered = layer.zoom.mapRect(layer.frame->adjusted(inset, inset, -inset, -inset));
    } else {
        covered = (layer.toCanvas * layer.zoom)
                      .mapRect(QRectF(layer.image.rect()).adjusted(1.0, 1.0, -1.0, -1.0));
    }
    const int left = static_cast<int>(std::ceil(covered.left()));
    const int top = static_cast<int>(std::ceil(covered.top()));
    const int right = static_cast<int>(std::floor(covered.right()));
    const int bottom = static_cast<int>(std::floor(covered.bottom()));
    if (right <= left || bottom <= top)
        return {};
    return QRect(QPoint(left, top), QPoint(right - 1, bottom - 1));
}

} // namespace

RoundedCameraCompositor::RoundedCameraCompositor(const RoundedCameraCompositorSettings& settings)
    : m_settings(settings), m_layers(settings) {
    // A new compositor starts an export: no follow history, no springs.
    m_zoomCameraEngine.reset();
}

RoundedCameraCompositor::~RoundedCameraCompositor() {
    m_isGone = true;
}

void RoundedCameraCompositor::startRequest(CompositionRequest request) {
    m_renderContextQueue.async([this, request = std::move(request)] {
        if (m_isGone)
            return;
        CompositionResult result = processRequest(request);
        if (request.finish)
            request.finish(std::move(result));
    });
}

void RoundedCameraCompositor::renderContextChanged() {
    m_renderContextQueue.async([this] {
        m_layers.clearCaches();
        m_cachedBackdrop = QImage();
        m_blackBackground = QImage();
        m_scaledCursor = QImage();
        m_scaledCursorFactor = -1.0;
        m_cursorShadow = CursorShadow();
    });
}

CompositionResult RoundedCameraCompositor::processRequest(const CompositionRequest& request) {
    CompositionResult result;
    result.compositionTime = request.compositionTime;
    const Size renderSize = request.renderSize;
    QImage canvas;
    if (request.newPixelBuffer) {
        canvas = request.newPixelBuffer(renderSize);
    } else if (renderSize.width >= 1.0 && renderSize.height >= 1.0) {
        // Every frame paints its whole canvas, so a buffer nobody else holds can be reused: a
        // fresh one costs the page faults of its first touch on every frame.
        const QSize size(static_cast<int>(renderSize.width), static_cast<int>(renderSize.height));
        if (!m_lastCanvas.isNull() && m_lastCanvas.size() == size && m_lastCanvas.isDetached())
            canvas = std::move(m_lastCanvas);
        else
            canvas = QImage(size, QImage::Format_ARGB32_Premultiplied);
        m_lastCanvas = QImage();
    }
    if (canvas.isNull() || canvas.format() != QImage::Format_ARGB32_Premultiplied) {
        result.error = CompositorError{QStringLiteral("RoundedCameraCompositor"), -1,
                                       QStringLiteral("Could not get an output buffer")};
        return result;
    }
    const double t = request.compositionTime;

    QImage screenImage;
    QImage cameraImage;
    for (std::size_t index = 0; index < request.sourceFrames.size(); ++index) {
        const QImage& frame = request.sourceFrames[index];
        if (frame.isNull()) {
            if (t < 0.1)
                logLine("   ❌ No frame for trackID={}", index);
            continue;
        }
        // Drawn as they come when the painter reads them directly; an opaque picture is best
        // given without alpha, which lets the canvas skip what it hides.
        const QImage converted = frame.format() == QImage::Format_ARGB32_Premultiplied ||
                                         frame.format() == QImage::Format_RGB32
                                     ? frame
                                     : frame.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        (index == 0 ? screenImage : cameraImage) = converted;
    }

    const QImage background =
        m_settings.backgroundSettings
            ? m_layers.createBackgroundImage(*m_settings.backgroundSettings, renderSize)
            : blackBackground(renderSize);

    if (m_settings.verticalStack && !screenImage.isNull() && !cameraImage.isNull()) {
        paintOpaque(canvas, background);
        renderVerticalStack(canvas, screenImage, cameraImage, t, renderSize);
        keepCanvas(request, canvas);
        result.composedFrame = canvas;
        return result;
    }

    if (screenImage.isNull()) {
        paintOpaque(canvas, background);
    } else {
        const Rect sourceExtent(0.0, 0.0, screenImage.width(), screenImage.height());
        ScreenLayer layer;
        if (m_settings.backgroundEnabled) {
            layer = m_layers.applyVideoPaddingAndCorners(
                screenImage, renderSize, m_settings.videoPadding, m_settings.videoCornerRadius);
        } else {
            // Unpadded, the frame keeps its own size from the lower left corner.
            layer.image = screenImage;
            layer.toCanvas =
                QTransform::fromTranslate(0.0, renderSize.height - screenImage.height());
        }
        applyZoomTransform(layer, t, renderSize);
        const QRect hidden = coveredByScreen(layer);
        if (layer.zoom.isIdentity() && !layer.shadow.isNull()) {
            // Unzoomed, background and shadow stand still: one copy of both together.
            paintOpaque(canvas, backdrop(background, layer), hidden);
            layer.shadow = QImage();
        } else {
            paintOpaque(canvas, background, hidden);
        }
        LayerPainter::drawScreenLayer(canvas, layer);
        if (m_settings.cursorOverlaySettings.enabled)
            drawCursorOverlay(canvas, t, renderSize, sourceExtent);
    }

    if (!cameraImage.isNull()) {
        // Drawn after the zoom: the camera never moves with the screen.
        const CameraOverlay overlay =
            m_layers.createRoundedCameraOverlay(cameraImage, t, renderSize);
        LayerPainter::drawPlaced(canvas, overlay.shadow);
        LayerPainter::drawPlaced(canvas, overlay.camera);
    }
    keepCanvas(request, canvas);
    result.composedFrame = canvas;
    return result;
}

void RoundedCameraCompositor::keepCanvas(const CompositionRequest& request, const QImage& canvas) {
    // A caller's own buffers are theirs to recycle.
    if (!request.newPixelBuffer)
        m_lastCanvas = canvas;
}

const QImage& RoundedCameraCompositor::blackBackground(Size renderSize) {
    if (m_blackBackground.isNull() ||
        m_blackBackground.size() != QSize(int(renderSize.width), int(renderSize.height)))
        m_blackBackground = CompositorLayers::blackImage(renderSize);
    return m_blackBackground;
}

const QImage& RoundedCameraCompositor::backdrop(const QImage& background,
                                                const ScreenLayer& layer) {
    if (m_cachedBackdrop.isNull() || m_backdropBackgroundKey != background.cacheKey() ||
        m_backdropShadowKey != layer.shadow.cacheKey()) {
        m_cachedBackdrop = background.copy();
        ScreenLayer shadowOnly = layer;
        shadowOnly.image = QImage();
        LayerPainter::drawShadow(m_cachedBackdrop, shadowOnly);
        m_backdropBackgroundKey = background.cacheKey();
        m_backdropShadowKey = layer.shadow.cacheKey();
    }
    return m_cachedBackdrop;
}

RoundedCameraCompositor::ZoomState RoundedCameraCompositor::screenZoomState(double t,
                                                                            Size renderSize) {
    if (m_settings.zoomSegments.empty()) {
        m_zoomCameraEngine.reset();
        return {};
    }
    const ZoomCameraFrame frame =
        m_zoomCameraEngine.evaluate(t, m_settings.zoomSegments, m_settings.cursorPositions,
                                    renderSize, ZoomCameraOptions::exportOptions());
    return {frame.scale, frame.center};
}

QTransform RoundedCameraCompositor::zoomTransform(double t, Size renderSize) {
    const ZoomState state = screenZoomState(t, renderSize);
    const double s = state.scale;
    // A finished zoom leaves scales a hair above 1; resampling for those would only blur.
    if (!(s > noZoomThreshold))
        return {};
    const double W = renderSize.width;
    const double H = renderSize.height;
    const double minX = (W / s / 2.0) / W;
    const double maxX = 1.0 - minX;
    const double minY = (H / s / 2.0) / H;
    const double maxY = 1.0 - minY;
    // The view never reaches past the canvas's edge.
    const double cx = std::max(minX, std::min(maxX, state.center.x));
    const double cy = std::max(minY, std::min(maxY, state.center.y));
    const double px = cx * W;
    const double py = (1.0 - cy) * H;
    return QTransform::fromTranslate(-px, -py) * QTransform::fromScale(s, s) *
           QTransform::fromTranslate(W / 2.0, H / 2.0);
}

void RoundedCameraCompositor::applyZoomTransform(ScreenLayer& layer, double t, Size renderSize) {
    const QTransform flip = flipY(renderSize.height);
    layer.zoom = flip * zoomTransform(t, renderSize) * flip;
}

QTransform RoundedCameraCompositor::applyZoomToImage(Size imageSize, double scale, Point center) {
    const double px = imageSize.width * center.x;
    const double py = (1.0 - center.y) * imageSize.height;
    return QTransform::fromTranslate(-px, -py) * QTransform::fromScale(scale, scale) *
           QTransform::fromTranslate(px, py);
}

Rect RoundedCameraCompositor::zoomedSourceExtent(const Rect& extent, double scale,
                                                 Point centerTopLeft) {
    if (scale <= noZoomThreshold)
        return extent;
    double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;
    bool first = true;
    for (const Point corner :
         {Point{extent.minX(), extent.minY()}, Point{extent.maxX(), extent.minY()},
          Point{extent.minX(), extent.maxY()}, Point{extent.maxX(), extent.maxY()}}) {
        const Point p = applySourceZoom(corner, extent, scale, centerTopLeft);
        minX = first ? p.x : std::min(minX, p.x);
        minY = first ? p.y : std::min(minY, p.y);
        maxX = first ? p.x : std::max(maxX, p.x);
        maxY = first ? p.y : std::max(maxY, p.y);
        first = false;
    }
    return Rect(minX, minY, maxX - minX, maxY - minY);
}

ScreenLayer RoundedCameraCompositor::scaleAndPositionImage(const QImage& image,
                                                           const QTransform& toExtent,
                                                           const Rect& extent, const Rect& frame,
                                                           double cornerRadius, Size renderSize,
                                                           ImageFillMode fillMode) {
    const double iw = std::max(1.0, extent.width());
    const double ih = std::max(1.0, extent.height());
    const double ia = iw / ih;
    const double fa = frame.width() / frame.height();
    double scale = 1.0;
    double xOffset = 0.0;
    double yOffset = 0.0;
    if (fillMode == ImageFillMode::aspectFill) {
        if (fa < ia) {
            scale = frame.height() / ih;
            xOffset = (frame.width() - iw * scale) / 2.0;
        } else {
            scale = frame.width() / iw;
            yOffset = (frame.height() - ih * scale) / 2.0;
        }
    } else if (fa < ia) {
        scale = frame.width() / iw;
        yOffset = (frame.height() - ih * scale) / 2.0;
    } else {
        scale = frame.height() / ih;
        xOffset = (frame.width() - iw * scale) / 2.0;
    }
    // The extent's own origin is scaled along rather than subtracted: a zoomed image with an
    // enlarged extent lands where the vertical stack's cursor mapping expects it.
    const QTransform placeBL =
        toExtent * QTransform::fromScale(scale, scale) *
        QTransform::fromTranslate(frame.minX() + xOffset, frame.minY() + yOffset);
    ScreenLayer layer;
    layer.image = image;
    layer.toCanvas = flipY(image.height()) * placeBL * flipY(renderSize.height);
    m_layers.applyRoundedCornersMask(layer, frame, cornerRadius, renderSize);
    return layer;
}

void RoundedCameraCompositor::renderVerticalStack(QImage& canvas, const QImage& screenImage,
                                                  const QImage& cameraImage, double t,
                                                  Size renderSize) {
    const double W = renderSize.width;
    const double H = renderSize.height;
    const double unit = H / 1920.0;
    const double gap = 8.0 * unit;
    const double cornerRadius = 16.0 * unit;
    const double ch = 0.35 * H - gap;
    const double sh = 0.65 * H - gap;
    const Rect cameraFrame(gap / 2.0, H - ch - gap / 2.0, W - gap, ch);
    const Rect screenFrame(gap / 2.0, gap / 2.0, W - gap, sh);

    const Rect cameraExtent(0.0, 0.0, cameraImage.width(), cameraImage.height());
    LayerPainter::drawScreenLayer(
        canvas, scaleAndPositionImage(cameraImage, QTransform(), cameraExtent, cameraFrame,
                                      cornerRadius, renderSize, ImageFillMode::aspectFill));

    const Rect screenExtent(0.0, 0.0, screenImage.width(), screenImage.height());
    const ZoomState zoom = screenZoomState(t, renderSize);
    QTransform toExtent;
    Rect extent = screenExtent;
    if (zoom.scale > noZoomThreshold) {
        toExtent = applyZoomToImage(screenExtent.size, zoom.scale, zoom.center);
        extent = boundingRect(
            toExtent.mapRect(QRectF(0.0, 0.0, screenExtent.width(), screenExtent.height())));
    }
    LayerPainter::drawScreenLayer(
        canvas, scaleAndPositionImage(screenImage, toExtent, extent, screenFrame, cornerRadius,
                                      renderSize, ImageFillMode::aspectFill));

    if (m_settings.cursorOverlaySettings.enabled)
        drawCursorOverlayForVerticalStack(canvas, t, screenFrame, screenExtent, renderSize);
}

const CursorOverlayRenderer& RoundedCameraCompositor::cursorRenderer() {
    // Made on first use; made again when the settings object holds other cursor data, as the
    // editor's preview does while the user edits. The comparison is linear in the samples, a
    // fraction of a millisecond for an hour of them.
    if (!m_cursorRenderer || !(m_cursorInputs.settings == m_settings.cursorOverlaySettings) ||
        m_cursorInputs.positions != m_settings.cursorPositions ||
        m_cursorInputs.clicks != m_settings.clickEvents) {
        m_cursorInputs = {m_settings.cursorOverlaySettings, m_settings.cursorPositions,
                          m_settings.clickEvents};
        m_cursorRenderer = std::make_unique<CursorOverlayRenderer>(
            m_settings.cursorOverlaySettings, m_settings.cursorPositions, m_settings.clickEvents);
    }
    return *m_cursorRenderer;
}

const QImage& RoundedCameraCompositor::scaledCursorImage(double k) {
    if (m_scaledCursor.isNull() || m_scaledCursorFactor != k) {
        const QImage& cursor = m_layers.getCursorImage();
        const QSize size(std::max(1, static_cast<int>(std::lround(cursor.width() * k))),
                         std::max(1, static_cast<int>(std::lround(cursor.height() * k))));
        m_scaledCursor = cursor.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        m_scaledCursorFactor = k;
    }
    return m_scaledCursor;
}

const RoundedCameraCompositor::CursorShadow&
RoundedCameraCompositor::cursorShadow(const QImage& scaledCursor, double sigma) {
    // The same image and blur give the same shadow: it changes only while a click animates.
    if (m_cursorShadow.image.isNull() || m_cursorShadow.cursorKey != scaledCursor.cacheKey() ||
        m_cursorShadow.sigma != sigma) {
        m_cursorShadow.image = RasterEffects::gaussianBlurred(silhouette(scaledCursor, 0.5), sigma,
                                                              &m_cursorShadow.offset);
        m_cursorShadow.cursorKey = scaledCursor.cacheKey();
        m_cursorShadow.sigma = sigma;
    }
    return m_cursorShadow;
}

void RoundedCameraCompositor::drawCursorOverlay(QImage& canvas, double t, Size renderSize,
                                                Rect screenSourceExtent) {
    const CursorState state = cursorRenderer().cursorState(t);
    if (!state.isVisible)
        return;
    const double W = renderSize.width;
    const double H = renderSize.height;
    const double unit = H / 1080.0;
    const Size frameSize = cursorFrameSize(H, state.scale);
    Rect contentRect(0.0, 0.0, W, H);
    if (m_settings.backgroundEnabled) {
        const double inset = m_settings.videoPadding * unit;
        contentRect =
            fitRect(screenSourceExtent.size, Rect(inset, inset, W - 2.0 * inset, H - 2.0 * inset),
                    CursorOverlayFitMode::aspectFit);
    }
    const Point hotspot = coreImageHotspotPoint(state.position, contentRect);
    const ZoomState zoom = screenZoomState(t, renderSize);
    const Point zoomed = applyZoom(hotspot, zoom.scale, zoom.center, renderSize);
    const Point origin = coreImageDrawOriginForHotspot(zoomed, frameSize);
    const QImage& cursorImage = m_layers.getCursorImage();
    const double k = coreImageCursorScale(
        {double(cursorImage.width()), double(cursorImage.height())}, frameSize);
    const QImage& scaled = scaledCursorImage(k);
    const QPointF position(origin.x, H - origin.y - cursorImage.height() * k);

    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const CursorShadow& shadow = cursorShadow(scaled, 2.0 * unit * state.scale);
    // Right and down by one unit: the light comes from the upper left.
    painter.drawImage(position + QPointF(shadow.offset) +
                          QPointF(unit * state.scale, unit * state.scale),
                      shadow.image);
    if (state.motionBlurAmount > 0.01) {
        const double radius = 30.0 * unit * state.motionBlurAmount;
        // The angle of motion is measured with y downward, as image rows run.
        const double angle = state.motionBlurAngle();
        QPoint first;
        QPoint second;
        const QImage once = RasterEffects::motionBlurred(scaled, radius, angle, &first);
        const QImage twice = RasterEffects::motionBlurred(once, radius * 0.5, angle, &second);
        painter.drawImage(position + QPointF(first + second), twice);
    } else {
        painter.drawImage(position, scaled);
    }
}

void RoundedCameraCompositor::drawCursorOverlayForVerticalStack(QImage& canvas, double t,
                                                                const Rect& screenFrame,
                                                                const Rect& originalScreenExtent,
                                                                Size renderSize) {
    const CursorState state = cursorRenderer().cursorState(t);
    if (!state.isVisible)
        return;
    const double H = renderSize.height;
    const Size frameSize = cursorFrameSize(H, state.scale, 1920.0);
    const ZoomState zoom = screenZoomState(t, renderSize);
    const Point hotspot = coreImageHotspotPoint(state.position, originalScreenExtent);
    const Point zoomed = applySourceZoom(hotspot, originalScreenExtent, zoom.scale, zoom.center);
    const Rect extent = zoomedSourceExtent(originalScreenExtent, zoom.scale, zoom.center);
    const Point mapped =
        mapSourcePointToFittedFrame(zoomed, extent, screenFrame, CursorOverlayFitMode::aspectFill);
    // A cursor cropped away by the fill must not float over the camera panel.
    if (mapped.x < screenFrame.minX() - frameSize.width ||
        mapped.x > screenFrame.maxX() + frameSize.width ||
        mapped.y < screenFrame.minY() - frameSize.height ||
        mapped.y > screenFrame.maxY() + frameSize.height)
        return;
    const Point origin = coreImageDrawOriginForHotspot(mapped, frameSize);
    const QImage& cursorImage = m_layers.getCursorImage();
    const double k = coreImageCursorScale(
        {double(cursorImage.width()), double(cursorImage.height())}, frameSize);
    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QPointF(origin.x, H - origin.y - cursorImage.height() * k),
                      scaledCursorImage(k));
}
