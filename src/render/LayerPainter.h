#pragma once

#include "render/CompositorLayers.h"

#include <QImage>

// Lays the layers' images onto the output canvas. Pure functions of their arguments; any
// thread, one canvas per thread.
namespace LayerPainter {

// The screen's shadow, then the screen cut to its rounded frame, both through the layer's zoom.
// The corners are cut with the layer's mask; the straight edges by clipping.
void drawScreenLayer(QImage& canvas, const ScreenLayer& layer);
// The layer's shadow alone, through its zoom.
void drawShadow(QImage& canvas, const ScreenLayer& layer);
void drawPlaced(QImage& canvas, const PlacedImage& placed);

} // namespace LayerPainter
