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

// One running-sum box pass over `count` samples `stride` apart, zero beyond the ends.
void boxPass(std::uint8_t* data, int count, int stride, int radius, std::vector<int>& scratch) {
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

// Blurs one byte plane (`channels` interleaved planes, this one at `channel`).
void blurPlane(std::uint8_t* bits, int width, int height, qsizetype bytesPerLine, int channels,
               int channel, double sigma) {
    if (sigma < 0.3)
        return;
    std::vector<int> scratch;
    for (int box : boxesForGauss(sigma)) {
        const int radius = (box - 1) / 2;
        if (radius < 1)
            continue;
        for (int y = 0; y < height; ++y)
            boxPass(bits + y * bytesPerLine + channel, width, channels, radius, scratch);
        for (int x = 0; x < width; ++x)
            boxPass(bits + x * channels + channel, height, static_cast<int>(bytesPerLine), radius,
                    scratch);
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
    blurPlane(alpha8.bits(), alpha8.width(), alpha8.height(), alpha8.bytesPerLine(), 1, 0, sigma);
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
    for (int channel = 0; channel < 4; ++channel)
        blurPlane(out.bits(), out.width(), out.height(), out.bytesPerLine(), 4, channel, sigma);
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
