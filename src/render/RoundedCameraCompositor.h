#pragma once

#include "core/cursor/CursorOverlayRenderer.h"
#include "core/geometry/Rect.h"
#include "core/support/SerialQueue.h"
#include "core/zoom/ZoomCameraEngine.h"
#include "render/CompositorLayers.h"
#include "render/RoundedCameraCompositorSettings.h"

#include <QImage>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

// Why a request got no frame: only a missing output buffer fails one.
struct CompositorError {
    QString domain;
    int code = 0;
    QString description;
    bool operator==(const CompositorError&) const = default;
};

// The answer to one request: the composed frame, or the error.
struct CompositionResult {
    double compositionTime = 0.0;
    std::optional<QImage> composedFrame;
    std::optional<CompositorError> error;
};

// One output frame to compose. Source frames come by track index: index 0 is the screen, any
// later index the camera; a null image means the track has no frame at this time. Opaque
// pictures (decoded video) are best given as Format_RGB32, translucent ones premultiplied;
// other formats are converted first.
struct CompositionRequest {
    double compositionTime = 0.0; // seconds on the composition's time line
    Size renderSize;
    std::vector<QImage> sourceFrames;
    // Gives the output buffer; by default a new premultiplied ARGB image of the render size.
    // A null image fails the request.
    std::function<QImage(Size)> newPixelBuffer;
    // Called on the render stage with the result.
    std::function<void(CompositionResult)> finish;
};

// Composes the styled frame of an export or of the editor's preview: background, screen with
// its padding, corners, shadow and zoom, the drawn cursor, and the camera picture, bottom to top
// in that order, or the vertical stack of camera over screen.
//
// Threads: `startRequest`, `renderContextChanged` and `cancelAllPendingVideoCompositionRequests`
// may be called from any thread. Requests are composed one after another, in the order they
// came, on the serial stage "com.tavelquiston.compositor.render", because the zoom engine keeps
// state from frame to frame; caches, engine and cursor renderer are touched only there.
// `processRequest` runs on the caller's thread and must only be called while no request is in
// flight (tests, single-frame renders). The settings object must outlive the compositor and must
// not be written while it composes.
class RoundedCameraCompositor final {
public:
    enum class ImageFillMode { aspectFit, aspectFill };

    static constexpr const char* renderQueueLabel = "com.tavelquiston.compositor.render";

    explicit RoundedCameraCompositor(const RoundedCameraCompositorSettings& settings =
                                         RoundedCameraCompositorSettings::shared());
    // Requests still queued are left unanswered; one being composed finishes first.
    ~RoundedCameraCompositor();
    RoundedCameraCompositor(const RoundedCameraCompositor&) = delete;
    RoundedCameraCompositor& operator=(const RoundedCameraCompositor&) = delete;

    void startRequest(CompositionRequest request);
    // The output size or format may have changed: every cache is dropped before the next frame.
    // Also the way to make a compositor that has already composed see new background colours,
    // which its background cache deliberately does not compare.
    void renderContextChanged();
    void cancelAllPendingVideoCompositionRequests() {}

    CompositionResult processRequest(const CompositionRequest& request);

    const RoundedCameraCompositorSettings& settings() const { return m_settings; }

    struct ZoomState {
        double scale = 1.0;
        Point center{0.5, 0.5};
    };
    ZoomState screenZoomState(double t, Size renderSize);
    // The zoom as a transform of bottom-left canvas coordinates; identity at or under 1.001.
    QTransform zoomTransform(double t, Size renderSize);
    void applyZoomTransform(ScreenLayer& layer, double t, Size renderSize);
    static QTransform applyZoomToImage(Size imageSize, double scale, Point center);
    static Rect zoomedSourceExtent(const Rect& extent, double scale, Point centerTopLeft);
    // Places an image (with `extent`, its pixels mapped there by `toExtent`, both bottom-left)
    // into `frame`, cut to it and rounded.
    ScreenLayer scaleAndPositionImage(const QImage& image, const QTransform& toExtent,
                                      const Rect& extent, const Rect& frame, double cornerRadius,
                                      Size renderSize, ImageFillMode fillMode);

private:
    void renderVerticalStack(QImage& canvas, const QImage& screenImage, const QImage& cameraImage,
                             double t, Size renderSize);
    void drawCursorOverlay(QImage& canvas, double t, Size renderSize, Rect screenSourceExtent);
    void drawCursorOverlayForVerticalStack(QImage& canvas, double t, const Rect& screenFrame,
                                           const Rect& originalScreenExtent, Size renderSize);
    const CursorOverlayRenderer& cursorRenderer();
    const QImage& blackBackground(Size renderSize);
    void keepCanvas(const CompositionRequest& request, const QImage& canvas);
    // Background with the screen's shadow on it, for frames without zoom.
    const QImage& backdrop(const QImage& background, const ScreenLayer& layer);
    const QImage& scaledCursorImage(double k);
    struct CursorShadow {
        QImage image;
        QPoint offset;
        qint64 cursorKey = 0;
        double sigma = -1.0;
    };
    const CursorShadow& cursorShadow(const QImage& scaledCursor, double sigma);

    const RoundedCameraCompositorSettings& m_settings;
    ZoomCameraEngine m_zoomCameraEngine;
    CompositorLayers m_layers;
    // What the cursor renderer was made from.
    struct CursorInputs {
        CursorOverlaySettings settings;
        std::vector<CursorPosition> positions;
        std::vector<CursorClick> clicks;
    };
    std::unique_ptr<CursorOverlayRenderer> m_cursorRenderer;
    CursorInputs m_cursorInputs;
    QImage m_scaledCursor;
    QImage m_blackBackground;
    QImage m_cachedBackdrop;
    // The last frame handed out; painted over again once the caller has let go of it.
    QImage m_lastCanvas;
    qint64 m_backdropBackgroundKey = 0;
    qint64 m_backdropShadowKey = 0;
    double m_scaledCursorFactor = -1.0;
    CursorShadow m_cursorShadow;
    std::atomic<bool> m_isGone{false};
    // Last member: destroyed first, so queued work never outlives the state it reads.
    SerialQueue m_renderContextQueue{renderQueueLabel};
};
