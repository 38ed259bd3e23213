#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/BackgroundSettings.h"
#include "core/metadata/CameraExportSettings.h"
#include "render/RoundedCameraCompositorSettings.h"

#include <QHash>
#include <QImage>
#include <QPoint>
#include <QRectF>
#include <QString>
#include <QTransform>

#include <optional>

// The screen picture as the layers leave it for the canvas: its own pixels, where they go, the
// rounded frame that cuts them and the shadow beneath. Drawing happens once per frame, straight
// into the output, so that a 1080p frame costs one resampling pass of the screen.
struct ScreenLayer {
    QImage image;
    // From the image's top-left pixels to the canvas's, before the zoom.
    QTransform toCanvas;
    // The rounded frame in canvas pixels (top-left origin), before the zoom; nothing when the
    // picture is drawn uncut.
    std::optional<QRectF> frame;
    double cornerRadius = 0.0;
    // Render-sized alpha mask of the rounded frame, used where the corners are cut.
    QImage mask;
    // Render-sized shadow around the frame, transparent under it; may be null.
    QImage shadow;
    // The zoom, from canvas pixels to canvas pixels, applied to picture and shadow alike.
    QTransform zoom;
};

// An image with its top-left corner at a canvas position.
struct PlacedImage {
    QImage image;
    QPointF position;
};

// The camera picture cut to its shape, over its shadow.
struct CameraOverlay {
    Rect frame; // bottom-left origin
    PlacedImage shadow;
    PlacedImage camera;
};

// The image generators of the compositor and their caches: background, padded and rounded
// screen, shadows, camera overlay, cursor image. Sizes a user sets are given for a canvas 1080
// pixels high and scale with the render height. Everything is computed with the origin at the
// lower left and y upward and turned into image pixels where it is drawn.
//
// Reads the settings object it was given on every call. Not thread-safe: the compositor uses
// it only on its render stage, which is why the caches need no lock.
class CompositorLayers final {
public:
    explicit CompositorLayers(const RoundedCameraCompositorSettings& settings);

    // Drops every cached image, the cursor image included.
    void clearCaches();

    // Cached by size, type and, for gradients, angle and number of colours only: the settings
    // do not change during an export, and this keeps the comparison cheap. Colour changes at the
    // same count are not seen until the size or the type changes.
    QImage createBackgroundImage(const BackgroundSettings& settings, Size renderSize);
    static QImage createGradientImage(const GradientSettings& gradient, Size size);
    static QImage blackImage(Size size);

    // The screen fitted into the canvas less the padding, centred, rounded, over its shadow.
    // Returned as it came (uncut, at its own size) when the padding leaves no room.
    ScreenLayer applyVideoPaddingAndCorners(const QImage& image, Size renderSize, double padding,
                                            double cornerRadius);
    // A shadow outside the rounded `frame` only: a transparent picture shows no grey behind it.
    QImage createVideoShadow(const Rect& frame, double cornerRadius, Size renderSize);
    // 8-bit alpha, opaque inside the rounded frame; fully opaque (no cut) when it cannot be made.
    static QImage createRoundedRectMask(const Rect& frame, double cornerRadius, Size size);
    // The mask by a key of `cacheKey` and the whole-number geometry; the store is emptied when
    // it grows past 10 entries, since a moving overlay makes a new key on every frame.
    QImage createRoundedRectMaskCached(const Rect& frame, double cornerRadius, Size size,
                                       const QString& cacheKey);
    void applyRoundedCornersMask(ScreenLayer& layer, const Rect& frame, double cornerRadius,
                                 Size renderSize);
    // Cuts `picture`, whose top-left pixel lies at `origin` of the canvas, to the disc with a
    // one-pixel soft edge inscribed in `frame`.
    static void applyCircleMask(QImage& picture, QPoint origin, const Rect& frame, Size renderSize);

    // The camera's size factor at `t`: `shrinkFactor` while the screen is zoomed, eased in and
    // out with the zoom segments; overlapping ramps mix by squared weight.
    double cameraScaleAtTime(double t) const;
    static double cinematicEase(double x);
    static double calculateCameraCornerRadius(double width, double height, CameraShape shape);
    CameraOverlay createRoundedCameraOverlay(const QImage& cameraImage, double t, Size renderSize);
    // The shadow of the camera frame, under it as well (the camera is opaque).
    PlacedImage createCameraShadow(const Rect& frame, double cornerRadius, Size renderSize);

    const QImage& getCursorImage();
    static QImage createArrowCursorImage(double size);

    int cameraMaskCacheCount() const { return static_cast<int>(m_cachedCameraMask.size()); }

private:
    const RoundedCameraCompositorSettings& m_settings;

    QImage m_cachedBackgroundImage;
    Size m_cachedBackgroundSize;
    std::optional<BackgroundSettings> m_cachedBackgroundSettings;

    QImage m_cachedVideoMask;
    Rect m_cachedVideoMaskFrame;
    double m_cachedVideoMaskCornerRadius = 0.0;
    Size m_cachedVideoMaskSize;

    QImage m_cachedVideoShadow;
    Rect m_cachedVideoShadowFrame;
    double m_cachedVideoShadowCornerRadius = 0.0;
    Size m_cachedVideoShadowSize;

    QHash<QString, QImage> m_cachedCameraMask;

    // Keyed like the screen shadow; the camera's shadow changes only while it animates.
    PlacedImage m_cachedCameraShadow;
    Rect m_cachedCameraShadowFrame;
    double m_cachedCameraShadowCornerRadius = -1.0;
    Size m_cachedCameraShadowSize;

    QImage m_cursorImage;
};
