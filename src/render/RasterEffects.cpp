#include "render/RasterEffects.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace RasterEffects {

namespace {

// Box widths whose three successive passes approximate a Gaussian of `sigma`.
std::array<int, 3> boxesForGauss(double sigma) {
    const double ideal = std::sqrt(12.0 * sigma * sigma / 3.0 + 1.0);
    int lower = static_cast<int>(std::floor(ideal));
    if (lower % 2 == 0)
        --lower;
    const int upper = lower + 2;
    const double m = std::round((12.0 * sigma * sigma - 3.0 * lower * lower - 12.0 * lower - 9.0) /
                                (-4.0 * lower - 4.0));
    std::array<int, 3> sizes{};
    for (int i = 0; i < 3; ++i)
        sizes[i] = std::max(1, i < m ? lower : upper);
    return sizes;
}

// One running-sum box pass along a row: `count` samples `stride` bytes apart, zero beyond the
// ends.
void boxPassRow(std::uint8_t* data, int count, int stride, int radius, std::vector<int>& scratch) {
    scratch.resize(count);
    for (int i = 0; i < count; ++i)
        scratch[i] = data[i * stride];
    const int width = 2 * radius + 1;
    int sum = 0;
    for (int i = 0; i <= std::min(radius, count - 1); ++i)
        sum += scratch[i];
    for (int i = 0; i < count; ++i) {
        data[i * stride] = static_cast<std::uint8_t>((sum + width / 2) / width);
        const int incoming = i + radius + 1;
        const int outgoing = i - radius;
        if (incoming < count)
            sum += scratch[incoming];
        if (outgoing >= 0)
            sum -= scratch[outgoing];
    }
}

// The same pass down the columns, all bytes of a row at once, so that memory is read row by
// row rather than with a stride of a whole row.
void boxPassColumns(std::uint8_t* bits, int rowBytes, int height, qsizetype bytesPerLine,
                    int radius, std::vector<std::uint8_t>& copy, std::vector<int>& sums) {
    copy.resize(static_cast<std::size_t>(rowBytes) * height);
    for (int y = 0; y < height; ++y)
        std::copy(bits + y * bytesPerLine, bits + y * bytesPerLine + rowBytes,
                  copy.begin() + static_cast<std::ptrdiff_t>(y) * rowBytes);
    sums.assign(rowBytes, 0);
    for (int y = 0; y <= std::min(radius, height - 1); ++y) {
        const std::uint8_t* row = copy.data() + static_cast<std::size_t>(y) * rowBytes;
        for (int x = 0; x < rowBytes; ++x)
            sums[x] += row[x];
    }
    const int width = 2 * radius + 1;
    for (int y = 0; y < height; ++y) {
        std::uint8_t* out = bits + y * bytesPerLine;
        for (int x = 0; x < rowBytes; ++x)
            out[x] = static_cast<std::uint8_t>((sums[x] + width / 2) / width);
        if (y + radius + 1 < height) {
            const std::uint8_t* row =
                copy.data() + static_cast<std::size_t>(y + radius + 1) * rowBytes;
            for (int x = 0; x < rowBytes; ++x)
                sums[x] += row[x];
        }
        if (y - radius >= 0) {
            const std::uint8_t* row = copy.data() + static_cast<std::size_t>(y - radius) * rowBytes;
            for (int x = 0; x < rowBytes; ++x)
                sums[x] -= row[x];
        }
    }
}

// Blurs every byte plane of an image with `channels` interleaved bytes per pixel.
void blurPlanes(std::uint8_t* bits, int width, int height, qsizetype bytesPerLine, int channels,
                double sigma) {
    if (sigma < 0.3 || width < 1 || height < 1)
        return;
    std::vector<int> scratch;
    std::vector<std::uint8_t> copy;
    for (int box : boxesForGauss(sigma)) {
        const int radius = (box - 1) / 2;
        if (radius < 1)
            continue;
        for (int y = 0; y < height; ++y) {
            for (int channel = 0; channel < channels; ++channel)
                boxPassRow(bits + y * bytesPerLine + channel, width, channels, radius, scratch);
        }
        boxPassColumns(bits, width * channels, height, bytesPerLine, radius, copy, scratch);
    }
}

} // namespace

QTransform flipY(double height) {
    return QTransform(1.0, 0.0, 0.0, -1.0, 0.0, height);
}

QRectF topLeftRect(const Rect& rect, double height) {
    return QRectF(rect.minX(), height - rect.maxY(), rect.width(), rect.height());
}

void blurAlpha(QImage& alpha8, double sigma) {
    if (alpha8.isNull() || alpha8.format() != QImage::Format_Alpha8)
        return;
    blurPlanes(alpha8.bits(), alpha8.width(), alpha8.height(), alpha8.bytesPerLine(), 1, sigma);
}

QImage gaussianBlurred(const QImage& image, double sigma, QPoint* offset) {
    const int margin = static_cast<int>(std::ceil(3.0 * std::max(0.0, sigma)));
    QImage out(image.width() + 2 * margin, image.height() + 2 * margin,
               QImage::Format_ARGB32_Premultiplied);
    out.fill(Qt::transparent);
    for (int y = 0; y < image.height(); ++y) {
        const uchar* source = image.constScanLine(y);
        std::copy(source, source + image.width() * 4, out.scanLine(y + margin) + margin * 4);
    }
    blurPlanes(out.bits(), out.width(), out.height(), out.bytesPerLine(), 4, sigma);
    if (offset)
        *offset = QPoint(-margin, -margin);
    return out;
}

QImage motionBlurred(const QImage& image, double radius, double angle, QPoint* offset) {
    const double dx = std::cos(angle) * radius;
    const double dy = std::sin(angle) * radius;
    const int marginX = static_cast<int>(std::ceil(std::abs(dx)));
    const int marginY = static_cast<int>(std::ceil(std::abs(dy)));
    const int width = image.width() + 2 * marginX;
    const int height = image.height() + 2 * marginY;
    // Enough copies that neighbouring ones overlap, few enough to stay cheap per frame.
    const int samples = std::clamp(static_cast<int>(std::ceil(radius)) + 1, 2, 17);
    std::vector<std::uint32_t> sums(static_cast<std::size_t>(width) * height * 4, 0);
    for (int i = 0; i < samples; ++i) {
        const double f = -1.0 + 2.0 * i / (samples - 1);
        const int shiftX = marginX + static_cast<int>(std::lround(dx * f));
        const int shiftY = marginY + static_cast<int>(std::lround(dy * f));
        for (int y = 0; y < image.height(); ++y) {
            const uchar* source = image.constScanLine(y);
            std::uint32_t* row =
                sums.data() + (static_cast<std::size_t>(y + shiftY) * width + shiftX) * 4;
            for (int k = 0; k < image.width() * 4; ++k)
                row[k] += source[k];
        }
    }
    QImage out(width, height, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < height; ++y) {
        uchar* row = out.scanLine(y);
        const std::uint32_t* sum = sums.data() + static_cast<std::size_t>(y) * width * 4;
        for (int k = 0; k < width * 4; ++k)
            row[k] = static_cast<uchar>((sum[k] + samples / 2) / samples);
    }
    if (offset)
        *offset = QPoint(-marginX, -marginY);
    return out;
}

} // namespace RasterEffects
