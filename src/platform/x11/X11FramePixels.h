#pragma once

#include <cstdint>

// Pixel work of the capture thread, on 32-bit BGRA/BGRX rows.
namespace X11FramePixels {

// Copies a source picture into a destination of any size (nearest pixel when the sizes
// differ), making every pixel opaque: the server leaves the padding byte of BGRX undefined.
void copyOpaque(const uint8_t* source, int sourceStride, int sourceWidth, int sourceHeight,
                uint8_t* destination, int destinationStride, int destinationWidth,
                int destinationHeight);

// Draws a premultiplied ARGB cursor image (XFixes' format) with its top left at (x, y) of the
// destination, clipped to it.
void blendCursor(const uint32_t* cursor, int cursorWidth, int cursorHeight, int x, int y,
                 uint8_t* destination, int destinationStride, int destinationWidth,
                 int destinationHeight);

// Paints the part of a destination that shows `rect` of the source (source pixels, clipped to
// it) with the same part of `under`, a picture of the source's size: the destination may be
// scaled, so each destination pixel takes the nearest source pixel.
void paintOver(const uint32_t* under, int sourceWidth, int sourceHeight, int rectX, int rectY,
               int rectWidth, int rectHeight, uint8_t* destination, int destinationStride,
               int destinationWidth, int destinationHeight);

// Fills a picture with one opaque colour given as 0xRRGGBB.
void fill(uint8_t* destination, int stride, int width, int height, uint32_t rgb);

} // namespace X11FramePixels
