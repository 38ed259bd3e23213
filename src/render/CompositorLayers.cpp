#include "render/CompositorLayers.h"

#include "core/support/Log.h"
#include "render/RasterEffects.h"

#include <QColor>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

using RasterEffects::topLeftRect;

namespace {

constexpr double referenceHeight = 1080.0;
constexpr double minimumWeight = 0.0001;

double unitFor(Size renderSize) {
    return renderSize.height / referenceHeight;
}

QImage newCanvas(Size size) {
    return QImage(std::max(1, static_cast<int>(size.width)),
                  std::max(1, static_cast<int>(size.height)), QImage::Format_ARGB32_Premultiplied);
}

QPainterPath roundedPath(const QRectF& rect, double radius) {
    QPainterPath path;
    const double r = std::clamp(radius, 0.0, std::min(rect.width(), rect.height()) / 2.0);
    path.addRoundedRect(rect, r, r);
    return path;
}

QColor qColor(const CodableColor& color) {
    return QColor::fromRgbF(static_cast<float>(std::clamp(color.red, 0.0, 1.0)),
                            static_cast<float>(std::clamp(color.green, 0.0, 1.0)),
                            static_cast<float>(std::clamp(color.blue, 0.0, 1.0)),
                            static_cast<float>(std::clamp(color.alpha, 0.0, 1.0)));
}

bool sameBackgroundKey(const BackgroundSettings& cached, const BackgroundSettings& wanted) {
    if (cached.type != wanted.type)
        return false;
    switch (wanted.type) {
    case StudioBackgroundType::gradient:
        return cached.gradient && wanted.gradient &&
               cached.gradient->angle == wanted.gradient->angle &&
               cached.gradient->colors.size() == wanted.gradient->colors.size();
    case StudioBackgroundType::solidColor:
        return true;
    case StudioBackgroundType::image:
        return false;
    }
    return false;
}

// Black, 8-bit alpha, `opacity` times the blurred shape: the shadow of a filled shape.
QImage shapeShadowAlpha(const QPainterPath& shape, QSize size, QPointF shift, double sigma) {
    QImage alpha(size, QImage::Format_Alpha8);
    alpha.fill(0);
    QPainter painter(&alpha);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(shift);
    painter.fillPath(shape, Qt::black);
    painter.end();
    RasterEffects::blurAlpha(alpha, sigma);
    return alpha;
}

QImage blackWithAlpha(const QImage& alpha8, double opacity) {
    QImage out(alpha8.size(), QImage::Format_ARGB32_Premultiplied);
    const int scale = static_cast<int>(std::lround(std::clamp(opacity, 0.0, 1.0) * 256.0));
    for (int y = 0; y < alpha8.height(); ++y) {
        const uchar* a = alpha8.constScanLine(y);
        auto* row = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < alpha8.width(); ++x)
            row[x] = qRgba(0, 0, 0, (a[x] * scale) >> 8);
    }
    return out;
}

} // namespace

CompositorLayers::CompositorLayers(const RoundedCameraCompositorSettings& settings)
    : m_settings(settings) {}

void CompositorLayers::clearCaches() {
    m_cachedBackgroundImage = QImage();
    m_cachedBackgroundSettings.reset();
    m_cachedVideoMask = QImage();
    m_cachedVideoShadow = QImage();
    m_cachedCameraMask.clear();
    m_cachedCameraShadow = PlacedImage();
    m_cachedCameraShadowCornerRadius = -1.0;
    m_cursorImage = QImage();
}

QImage CompositorLayers::blackImage(Size size) {
    QImage image = newCanvas(size);
    image.fill(Qt::black);
    return image;
}

QImage CompositorLayers::createBackgroundImage(const BackgroundSettings& settings,
                                               Size renderSize) {
    if (!m_cachedBackgroundImage.isNull() && m_cachedBackgroundSize == renderSize &&
        m_cachedBackgroundSettings && sameBackgroundKey(*m_cachedBackgroundSettings, settings))
        return m_cachedBackgroundImage;

    QImage image;
    switch (settings.type) {
    case StudioBackgroundType::gradient:
        image = settings.gradient ? createGradientImage(*settings.gradient, renderSize)
                                  : blackImage(renderSize);
        break;
    case StudioBackgroundType::solidColor:
        image = newCanvas(renderSize);
        image.fill(settings.color ? qColor(*settings.color) : QColor(Qt::black));
        break;
    case StudioBackgroundType::image:
        // Picture backgrounds are the editor's alone; an export shows black.
        image = blackImage(renderSize);
        break;
    }
    m_cachedBackgroundImage = image;
    m_cachedBackgroundSize = renderSize;
    m_cachedBackgroundSettings = settings;
    return image;
}

QImage CompositorLayers::createGradientImage(const GradientSettings& gradient, Size size) {
    const int width = static_cast<int>(size.width);
    const int height = static_cast<int>(size.height);
    if (gradient.colors.empty() || width < 1 || height < 1)
        return blackImage(size);

    const double a = gradient.angle * std::numbers::pi / 180.0;
    const double cx = width / 2.0;
    const double cy = height / 2.0;
    const double halfLength = std::sqrt(double(width) * width + double(height) * height) / 2.0;
    // The line runs over the half diagonal on both sides of the centre, so that every angle
    // reaches the corners; worked out with y upward, then flipped into image rows.
    const Point start{cx - std::cos(a - std::numbers::pi / 2.0) * halfLength,
                      cy - std::sin(a - std::numbers::pi / 2.0) * halfLength};
    const Point end{cx + std::cos(a - std::numbers::pi / 2.0) * halfLength,
                    cy + std::sin(a - std::numbers::pi / 2.0) * halfLength};
    QLinearGradient linear(QPointF(start.x, height - start.y), QPointF(end.x, height - end.y));
    linear.setSpread(QGradient::PadSpread);
    const auto count = gradient.colors.size();
    if (count == 1) {
        linear.setColorAt(0.0, qColor(gradient.colors.front()));
        linear.setColorAt(1.0, qColor(gradient.colors.front()));
    } else {
        for (std::size_t i = 0; i < count; ++i)
            linear.setColorAt(double(i) / double(count - 1), qColor(gradient.colors[i]));
    }
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.fillRect(image.rect(), linear);
    return image;
}

ScreenLayer CompositorLayers::applyVideoPaddingAndCorners(const QImage& image, Size renderSize,
                                                          double padding, double cornerRadius) {
    ScreenLayer layer;
    layer.image = image;
    const double unit = unitFor(renderSize);
    const double pad = padding * unit;
    const double radius = cornerRadius * unit;
    const double aw = renderSize.width - 2.0 * pad;
    const double ah = renderSize.height - 2.0 * pad;
    const double iw = image.width();
    const double ih = image.height();
    if (aw <= 0.0 || ah <= 0.0 || iw <= 0.0 || ih <= 0.0) {
        // Drawn as the image came: at its own size from the lower left corner.
        layer.toCanvas = QTransform::fromTranslate(0.0, renderSize.height - ih);
        return layer;
    }
    const double fit = std::min(aw / iw, ah / ih);
    const double sw = iw * fit;
    const double sh = ih * fit;
    const Rect frame(pad + (aw - sw) / 2.0, pad + (ah - sh) / 2.0, sw, sh);
    const QRectF frameTL = topLeftRect(frame, renderSize.height);
    layer.toCanvas =
        QTransform::fromScale(fit, fit) * QTransform::fromTranslate(frameTL.x(), frameTL.y());
    layer.frame = frameTL;
    layer.cornerRadius = radius;

    if (m_cachedVideoMask.isNull() || !(m_cachedVideoMaskFrame == frame) ||
        m_cachedVideoMaskCornerRadius != radius || !(m_cachedVideoMaskSize == renderSize)) {
        m_cachedVideoMask = createRoundedRectMask(frame, radius, renderSize);
        m_cachedVideoMaskFrame = frame;
        m_cachedVideoMaskCornerRadius = radius;
        m_cachedVideoMaskSize = renderSize;
    }
    layer.mask = m_cachedVideoMask;

    if (m_cachedVideoShadow.isNull() || !(m_cachedVideoShadowFrame == frame) ||
        m_cachedVideoShadowCornerRadius != radius || !(m_cachedVideoShadowSize == renderSize)) {
        m_cachedVideoShadow = createVideoShadow(frame, radius, renderSize);
        m_cachedVideoShadowFrame = frame;
        m_cachedVideoShadowCornerRadius = radius;
        m_cachedVideoShadowSize = renderSize;
    }
    layer.shadow = m_cachedVideoShadow;
    return layer;
}

QImage CompositorLayers::createVideoShadow(const Rect& frame, double cornerRadius,
                                           Size renderSize) {
    QImage clear = newCanvas(renderSize);
    clear.fill(Qt::transparent);
    if (m_settings.screenShadowOpacity <= 0.0 || renderSize.width < 1.0 || renderSize.height < 1.0)
        return clear;
    const double unit = unitFor(renderSize);
    const QRectF frameTL = topLeftRect(frame, renderSize.height);
    const QPainterPath shape = roundedPath(frameTL, cornerRadius);
    // The offset is downward; the blur radius is about two standard deviations of the spread.
    const QImage alpha =
        shapeShadowAlpha(shape, clear.size(), QPointF(0.0, m_settings.screenShadowOffsetY * unit),
                         m_settings.screenShadowRadius * unit / 2.0);
    QImage shadow = blackWithAlpha(alpha, m_settings.screenShadowOpacity);
    QPainter painter(&shadow);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
    painter.fillPath(shape, Qt::black);
    return shadow;
}

QImage CompositorLayers::createRoundedRectMask(const Rect& frame, double cornerRadius, Size size) {
    const int width = static_cast<int>(size.width);
    const int height = static_cast<int>(size.height);
    QImage mask(std::max(1, width), std::max(1, height), QImage::Format_Alpha8);
    if (width < 1 || height < 1) {
        mask.fill(255);
        return mask;
    }
    mask.fill(0);
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(roundedPath(topLeftRect(frame, size.height), cornerRadius), Qt::black);
    return mask;
}

QImage CompositorLayers::createRoundedRectMaskCached(const Rect& frame, double cornerRadius,
                                                     Size size, const QString& cacheKey) {
    const auto whole = [](double v) { return QString::number(static_cast<long long>(v)); };
    const QString key = QStringList{cacheKey,
                                    whole(frame.origin.x),
                                    whole(frame.origin.y),
                                    whole(frame.size.width),
                                    whole(frame.size.height),
                                    whole(cornerRadius),
                                    whole(size.width),
                                    whole(size.height)}
                            .join(QLatin1Char('_'));
    if (const auto found = m_cachedCameraMask.constFind(key); found != m_cachedCameraMask.cend())
        return found.value();
    QImage mask = createRoundedRectMask(frame, cornerRadius, size);
    if (m_cachedCameraMask.size() > 10)
        m_cachedCameraMask.clear();
    m_cachedCameraMask.insert(key, mask);
    return mask;
}

void CompositorLayers::applyRoundedCornersMask(ScreenLayer& layer, const Rect& frame,
                                               double cornerRadius, Size renderSize) {
    layer.frame = topLeftRect(frame, renderSize.height);
    layer.cornerRadius = cornerRadius;
    layer.mask =
        createRoundedRectMaskCached(frame, cornerRadius, renderSize, QStringLiteral("camera"));
}

void CompositorLayers::applyCircleMask(QImage& picture, QPoint origin, const Rect& frame,
                                       Size renderSize) {
    if (picture.isNull() || picture.format() != QImage::Format_ARGB32_Premultiplied)
        return;
    const double r = std::min(frame.width(), frame.height()) / 2.0;
    const QPointF centre = topLeftRect(frame, renderSize.height).center() - QPointF(origin);
    // Opaque up to r - 1 from the centre, clear from r: a one-pixel soft edge. Only the
    // picture's own pixels are touched (a moving overlay needs a new disc on every frame), and
    // square roots only for the pixels in that ring.
    const double inner = std::max(0.0, r - 1.0);
    for (int y = 0; y < picture.height(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(picture.scanLine(y));
        const double dy = y + 0.5 - centre.y();
        const double dySquared = dy * dy;
        if (dySquared >= r * r) {
            std::fill(row, row + picture.width(), QRgb(0));
            continue;
        }
        const double halfChord = std::sqrt(r * r - dySquared);
        const int from = std::clamp(static_cast<int>(std::floor(centre.x() - halfChord - 0.5)), 0,
                                    picture.width());
        const int to = std::clamp(static_cast<int>(std::ceil(centre.x() + halfChord - 0.5)) + 1,
                                  from, picture.width());
        std::fill(row, row + from, QRgb(0));
        std::fill(row + to, row + picture.width(), QRgb(0));
        for (int x = from; x < to; ++x) {
            const double dx = x + 0.5 - centre.x();
            const double squared = dx * dx + dySquared;
            if (squared <= inner * inner)
                continue;
            if (squared >= r * r) {
                row[x] = 0;
                continue;
            }
            const int coverage = static_cast<int>(std::lround((r - std::sqrt(squared)) * 255.0));
            const QRgb p = row[x];
            const auto scaled = [coverage](int channel) {
                return (channel * coverage + 127) / 255;
            };
            row[x] = qRgba(scaled(qRed(p)), scaled(qGreen(p)), scaled(qBlue(p)), scaled(qAlpha(p)));
        }
    }
}

double CompositorLayers::cinematicEase(double x) {
    x = std::clamp(x, 0.0, 1.0);
    if (x < 0.5)
        return 16.0 * std::pow(x, 5.0);
    return 1.0 - std::pow(-2.0 * x + 2.0, 5.0) / 2.0;
}

double CompositorLayers::cameraScaleAtTime(double t) const {
    const auto& segments = m_settings.zoomSegments;
    if (segments.empty())
        return 1.0;
    const double shrink = m_settings.cameraSettings.shrinkFactor;
    struct Entry {
        double scale;
        double weight;
    };
    std::vector<Entry> entries;
    for (const ZoomSegment& segment : segments) {
        const double inLen = std::max(minimumWeight, segment.easeIn);
        const double outLen = std::max(minimumWeight, segment.easeOut);
        const double rampStart = std::max(0.0, segment.startTime - segment.easeIn);
        const double rampEnd = segment.endTime + segment.easeOut;
        if (t < rampStart || t > rampEnd)
            continue;
        if (t < segment.startTime) {
            const double e = cinematicEase((t - rampStart) / inLen);
            entries.push_back({1.0 + (shrink - 1.0) * e, e});
        } else if (t <= segment.endTime) {
            entries.push_back({shrink, 1.0});
        } else {
            const double e = cinematicEase((t - segment.endTime) / outLen);
            entries.push_back({shrink + (1.0 - shrink) * e, 1.0 - e});
        }
    }
    if (entries.empty())
        return 1.0;
    if (entries.size() == 1)
        return entries.front().scale;
    double sum = 0.0;
    double weights = 0.0;
    for (const Entry& entry : entries) {
        const double w = std::max(minimumWeight, entry.weight * entry.weight);
        sum += entry.scale * w;
        weights += w;
    }
    return weights > 0.0 ? sum / weights : entries.front().scale;
}

double CompositorLayers::calculateCameraCornerRadius(double width, double height,
                                                     CameraShape shape) {
    const double m = std::min(width, height);
    switch (shape) {
    case CameraShape::squircle:
        return 0.22 * m;
    case CameraShape::circle:
        return m / 2.0;
    case CameraShape::roundedRect:
        return 0.12 * m;
    case CameraShape::rectangle:
        return 0.0;
    }
    return 0.0;
}

CameraOverlay CompositorLayers::createRoundedCameraOverlay(const QImage& cameraImage, double t,
                                                           Size renderSize) {
    const double W = renderSize.width;
    const double H = renderSize.height;
    const CameraExportSettings& camera = m_settings.cameraSettings;
    const double scale = cameraScaleAtTime(t);
    const bool square =
        camera.shape == CameraShape::circle || camera.shape == CameraShape::squircle;
    const double hw = square ? 1.0
                             : std::max(1.0, m_settings.cameraNaturalSize.height) /
                                   std::max(1.0, m_settings.cameraNaturalSize.width);
    const double baseW = W * camera.widthFraction;
    const double baseH = baseW * hw;
    const double w = baseW * scale;
    const double h = baseH * scale;
    const double cx = camera.centerNormalized.x * W;
    const double cy = (1.0 - camera.centerNormalized.y) * H;
    const double left = cx - baseW / 2.0;
    const double right = cx + baseW / 2.0;
    const double bottom = cy - baseH / 2.0;
    const double top = cy + baseH / 2.0;
    // Shrinking keeps the edges nearest to the canvas's corner, so the overlay stays tucked in.
    double x = left < W - right ? left : right - w;
    double y = bottom < H - top ? bottom : top - h;
    x = std::max(0.0, std::min(x, W - w));
    y = std::max(0.0, std::min(y, H - h));
    const Rect frame(x, y, w, h);

    CameraOverlay overlay;
    overlay.frame = frame;
    const QRectF frameTL = topLeftRect(frame, H);
    const QRect bounds = frameTL.toAlignedRect().intersected(QRect(0, 0, int(W), int(H)));
    if (bounds.isEmpty() || cameraImage.isNull())
        return overlay;

    const double iw = std::max(1, cameraImage.width());
    const double ih = std::max(1, cameraImage.height());
    QRectF target;
    if (square) {
        const double s = std::max(w / iw, h / ih);
        target =
            topLeftRect(Rect(x - (iw * s - w) / 2.0, y - (ih * s - h) / 2.0, iw * s, ih * s), H);
    } else {
        target = frameTL;
    }
    QImage picture(bounds.size(), QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.translate(-bounds.topLeft());
    // In bands of rows, like the screen: a taller fill goes to Qt's worker threads.
    constexpr int bandHeight = 64;
    for (int top = bounds.top(); top <= bounds.bottom(); top += bandHeight) {
        painter.setClipRect(frameTL);
        painter.setClipRect(QRect(bounds.left(), top, bounds.width(), bandHeight),
                            Qt::IntersectClip);
        painter.drawImage(target, cameraImage);
    }
    painter.setClipping(false);
    const double cornerRadius = calculateCameraCornerRadius(w, h, camera.shape);
    if (camera.shape == CameraShape::circle) {
        painter.end();
        applyCircleMask(picture, bounds.topLeft(), frame, renderSize);
    } else {
        const QImage mask =
            createRoundedRectMaskCached(frame, cornerRadius, renderSize, QStringLiteral("camera"));
        painter.resetTransform();
        painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        for (int top = bounds.top(); top <= bounds.bottom(); top += bandHeight) {
            const QRect band(bounds.left(), top, bounds.width(),
                             std::min(bandHeight, bounds.bottom() + 1 - top));
            painter.drawImage(QPoint(0, top - bounds.top()), mask, band);
        }
        painter.end();
    }

    overlay.camera = {picture, QPointF(bounds.topLeft())};
    overlay.shadow = createCameraShadow(frame, cornerRadius, renderSize);
    return overlay;
}

PlacedImage CompositorLayers::createCameraShadow(const Rect& frame, double cornerRadius,
                                                 Size renderSize) {
    if (m_settings.cameraShadowOpacity <= 0.0) {
        logLine("⚠️ Camera shadow skipped: opacity is 0");
        return {};
    }
    if (!m_cachedCameraShadow.image.isNull() && m_cachedCameraShadowFrame == frame &&
        m_cachedCameraShadowCornerRadius == cornerRadius && m_cachedCameraShadowSize == renderSize)
        return m_cachedCameraShadow;

    const double unit = unitFor(renderSize);
    const double sigma = std::max(0.5, m_settings.cameraShadowRadius * unit / 2.0);
    const int margin = static_cast<int>(std::ceil(3.0 * sigma)) + 1;
    // Only the neighbourhood of the frame can hold shadow. The overlay's shadow is new on every
    // frame while it animates, so it is computed in closed form rather than blurred: a
    // Gaussian-blurred edge is the error function of the distance to the shape, which for a
    // rounded rectangle is close enough to the true blur to be indistinguishable.
    const QRectF shifted = topLeftRect(frame, renderSize.height).translated(0.0, 8.0 * unit);
    const QRect bounds = shifted.toAlignedRect().adjusted(-margin, -margin, margin, margin);
    const double r =
        std::clamp(cornerRadius, 0.0, std::min(shifted.width(), shifted.height()) / 2.0);
    const double halfW = shifted.width() / 2.0 - r;
    const double halfH = shifted.height() / 2.0 - r;
    const QPointF centre = shifted.center();
    const double o = std::clamp(m_settings.cameraShadowOpacity, 0.0, 1.0);
    // Alpha by signed distance to the edge, from -reach to +reach in 1/8 pixel steps: the filled
    // shape over its own blurred shadow, both black at the opacity. Beyond the reach it is
    // constant (inside) or clear (outside).
    const double step = 0.125;
    const double reach = 3.0 * sigma + 1.0;
    const int half = static_cast<int>(std::ceil(reach / step));
    std::vector<QRgb> alphaByDistance(2 * half + 1);
    for (int i = 0; i <= 2 * half; ++i) {
        const double distance = (i - half) * step;
        const double fill = o * std::clamp(0.5 - distance, 0.0, 1.0);
        const double blur = o * 0.5 * std::erfc(distance / (sigma * std::numbers::sqrt2));
        alphaByDistance[i] =
            qRgba(0, 0, 0, static_cast<int>((fill + blur * (1.0 - fill)) * 255.0 + 0.5));
    }
    const QRgb inside = alphaByDistance.front();
    const double innerSquared = std::max(0.0, r - reach) * std::max(0.0, r - reach);
    const double outerSquared = (r + reach) * (r + reach);
    const auto lookup = [&](double distance) {
        return alphaByDistance[std::clamp(static_cast<int>(distance / step + half + 0.5), 0,
                                          2 * half)];
    };
    const auto pixel = [&](int x, double qy) {
        const double qx = std::abs(bounds.left() + x + 0.5 - centre.x()) - halfW;
        if (qx <= 0.0 && qy <= 0.0)
            return lookup(std::max(qx, qy) - r);
        // Near a rounded corner: square roots only where the edge is within reach.
        const double ox = std::max(qx, 0.0);
        const double oy = std::max(qy, 0.0);
        const double squared = ox * ox + oy * oy;
        if (squared <= innerSquared)
            return inside;
        if (squared >= outerSquared)
            return QRgb(0);
        return lookup(std::sqrt(squared) - r);
    };
    // Columns from the left edge of the bounds with |x + 0.5 - centre| <= reach, less a pixel on
    // each side for rounding: every value is a function of that distance alone within a row,
    // constant (inside) near the centre and clear far out, so only the band between is computed.
    const int width = bounds.width();
    const auto columnsWithin = [&](double reach) {
        const double from = centre.x() - reach - bounds.left() - 0.5;
        const double to = centre.x() + reach - bounds.left() - 0.5;
        return std::pair(
            static_cast<int>(std::clamp(std::ceil(from + 1.0), 0.0, double(width))),
            static_cast<int>(std::clamp(std::floor(to - 1.0) + 1.0, 0.0, double(width))));
    };
    // Past this signed distance the table's first entry is looked up.
    const double insideDistance = (0.5 - half) * step;
    QImage shadow(bounds.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < bounds.height(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(shadow.scanLine(y));
        const double qy = std::abs(bounds.top() + y + 0.5 - centre.y()) - halfH;
        const double oy = std::max(qy, 0.0);
        if (oy * oy >= outerSquared) {
            std::fill(row, row + width, QRgb(0));
            continue;
        }
        // Clear beyond the outer reach, on both sides.
        const auto [firstLit, litEnd] = columnsWithin(halfW + std::sqrt(outerSquared - oy * oy));
        // Opaque inside: by the corner's inner circle above and below the straight sides, by
        // the table's first entry between them.
        double solid = -1.0;
        if (qy > 0.0 && oy * oy <= innerSquared)
            solid = halfW + std::sqrt(innerSquared - oy * oy);
        else if (qy <= 0.0 && qy - r < insideDistance)
            solid = std::min(halfW, halfW + r + insideDistance);
        auto [solidBegin, solidEnd] = solid >= 0.0 ? columnsWithin(solid) : std::pair(0, 0);
        if (solidBegin >= solidEnd)
            solidBegin = solidEnd = firstLit;
        std::fill(row, row + firstLit, QRgb(0));
        for (int x = firstLit; x < solidBegin; ++x)
            row[x] = pixel(x, qy);
        std::fill(row + solidBegin, row + solidEnd, inside);
        for (int x = std::max(solidEnd, firstLit); x < litEnd; ++x)
            row[x] = pixel(x, qy);
        std::fill(row + std::max(litEnd, firstLit), row + width, QRgb(0));
    }
    m_cachedCameraShadow = {shadow, QPointF(bounds.topLeft())};
    m_cachedCameraShadowFrame = frame;
    m_cachedCameraShadowCornerRadius = cornerRadius;
    m_cachedCameraShadowSize = renderSize;
    return m_cachedCameraShadow;
}

const QImage& CompositorLayers::getCursorImage() {
    if (m_cursorImage.isNull())
        m_cursorImage = createArrowCursorImage(128.0);
    return m_cursorImage;
}

QImage CompositorLayers::createArrowCursorImage(double s) {
    const double m = 0.15 * s;
    const int side = static_cast<int>(s + 2.0 * m);
    if (side < 1)
        return {};
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    // Image rows already run downward, so the path's top-left coordinates need only the margin.
    painter.translate(m, m);
    QPainterPath path;
    path.moveTo(0.0, 0.0);
    path.lineTo(0.0, 0.85 * s);
    path.lineTo(0.2 * s, 0.65 * s);
    path.lineTo(0.35 * s, 0.95 * s);
    path.lineTo(0.5 * s, 0.85 * s);
    path.lineTo(0.35 * s, 0.55 * s);
    path.lineTo(0.55 * s, 0.55 * s);
    path.closeSubpath();
    const double line = s / 24.0;
    painter.strokePath(path,
                       QPen(Qt::white, 3.0 * line, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.strokePath(path,
                       QPen(Qt::black, 1.5 * line, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.fillPath(path, Qt::white);
    return image;
}
