#include "render/LayerPainter.h"

#include <QPainter>

#include <array>
#include <cmath>
#include <utility>
#include <vector>

namespace LayerPainter {

namespace {

// Drawn in bands of rows at most this tall: Qt hands a fill of about a hundred rows or more to
// its worker threads and waits for them, which costs more CPU time than it spreads.
constexpr int bandHeight = 64;

} // namespace

void drawPlaced(QImage& canvas, const PlacedImage& placed) {
    if (placed.image.isNull())
        return;
    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRect rows = QRectF(placed.position, QSizeF(placed.image.size()))
                           .toAlignedRect()
                           .intersected(canvas.rect());
    for (int top = rows.top(); top <= rows.bottom(); top += bandHeight) {
        painter.setClipRect(QRect(rows.left(), top, rows.width(), bandHeight));
        painter.drawImage(placed.position, placed.image);
    }
}

void drawShadow(QImage& canvas, const ScreenLayer& layer) {
    if (layer.shadow.isNull())
        return;
    QPainter painter(&canvas);
    // The shadow has no detail to lose: sampled without interpolation it looks the same and
    // costs a third of the time while zoomed.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    painter.setTransform(layer.zoom);
    if (layer.frame) {
        // The shadow is clear inside the frame; drawing only the bands around it saves most
        // of a full-canvas blend.
        // Whole pixels, so that neighbouring bands never blend one row twice.
        const double inset = layer.cornerRadius + 1.0;
        const QRectF inner = layer.frame->adjusted(inset, inset, -inset, -inset);
        const int left = static_cast<int>(std::ceil(inner.left()));
        const int top = static_cast<int>(std::ceil(inner.top()));
        const int right = std::max(left, static_cast<int>(std::floor(inner.right())));
        const int bottom = std::max(top, static_cast<int>(std::floor(inner.bottom())));
        const int width = layer.shadow.width();
        const int height = layer.shadow.height();
        const std::array<QRectF, 4> bands{
            QRectF(0, 0, width, top), QRectF(0, bottom, width, height - bottom),
            QRectF(0, top, left, bottom - top), QRectF(right, top, width - right, bottom - top)};
        for (const QRectF& band : bands) {
            if (band.width() > 0.0 && band.height() > 0.0)
                painter.drawImage(band, layer.shadow, band);
        }
    } else {
        painter.drawImage(QPointF(), layer.shadow);
    }
}

void drawScreenLayer(QImage& canvas, const ScreenLayer& layer) {
    if (layer.image.isNull())
        return;
    drawShadow(canvas, layer);
    const QRect canvasRect = canvas.rect();
    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (!layer.frame) {
        painter.setTransform(layer.toCanvas * layer.zoom);
        painter.drawImage(QPointF(), layer.image);
        return;
    }

    // Corners: what lies under them is kept before the picture covers it, then the picture's
    // corner pixels are cut by the mask and laid back over it.
    std::vector<std::pair<QRect, QImage>> corners;
    const bool rounded = layer.cornerRadius > 0.0 && !layer.mask.isNull();
    if (rounded) {
        const QRectF f = *layer.frame;
        const double side = layer.cornerRadius + 2.0;
        for (const QPointF& corner :
             {f.topLeft(), QPointF(f.right() - side, f.top()), QPointF(f.left(), f.bottom() - side),
              QPointF(f.right() - side, f.bottom() - side)}) {
            const QRect device = layer.zoom.mapRect(QRectF(corner, QSizeF(side, side)))
                                     .toAlignedRect()
                                     .intersected(canvasRect);
            if (!device.isEmpty())
                corners.emplace_back(device, canvas.copy(device));
        }
    }
    // In bands of rows, to keep the fill on this thread.
    const QRectF clip = layer.zoom.mapRect(*layer.frame);
    const QRect rows = clip.toAlignedRect().intersected(canvasRect);
    for (int top = rows.top(); top <= rows.bottom(); top += bandHeight) {
        painter.resetTransform();
        painter.setClipRect(clip);
        painter.setClipRect(QRect(rows.left(), top, rows.width(), bandHeight), Qt::IntersectClip);
        painter.setTransform(layer.toCanvas * layer.zoom);
        painter.drawImage(QPointF(), layer.image);
    }
    painter.end();

    for (auto& [device, under] : corners) {
        QImage piece = canvas.copy(device);
        QPainter cut(&piece);
        cut.setRenderHint(QPainter::SmoothPixmapTransform);
        cut.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        cut.setTransform(layer.zoom * QTransform::fromTranslate(-device.x(), -device.y()));
        cut.drawImage(QPointF(), layer.mask);
        cut.end();
        QPainter back(&under);
        back.drawImage(QPoint(0, 0), piece);
        back.end();
        QPainter put(&canvas);
        put.setCompositionMode(QPainter::CompositionMode_Source);
        put.drawImage(device.topLeft(), under);
    }
}

} // namespace LayerPainter
