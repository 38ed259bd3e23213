#include "render/CompositorLayers.h"
#include "render/LayerPainter.h"

#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>

namespace {

// Most cases use a 320x180 canvas: one unit of user size is 1/6 pixel there.
constexpr Size smallCanvas{320.0, 180.0};

const CodableColor red{1.0, 0.0, 0.0, 1.0};
const CodableColor blue{0.0, 0.0, 1.0, 1.0};

QImage filled(int width, int height, QColor color) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return image;
}

BackgroundSettings gradientBackground(std::vector<CodableColor> colors, double angle) {
    BackgroundSettings settings;
    settings.type = StudioBackgroundType::gradient;
    settings.gradient = GradientSettings{std::move(colors), angle, std::nullopt};
    return settings;
}

BackgroundSettings solidBackground(std::optional<CodableColor> color) {
    BackgroundSettings settings;
    settings.type = StudioBackgroundType::solidColor;
    settings.color = color;
    return settings;
}

ZoomSegment segment(double start, double end, double easeIn, double easeOut) {
    ZoomSegment s;
    s.startTime = start;
    s.endTime = end;
    s.easeIn = easeIn;
    s.easeOut = easeOut;
    return s;
}

void expectColor(const QImage& image, int x, int y, int r, int g, int b, int tolerance = 3) {
    const QColor c = image.pixelColor(x, y);
    EXPECT_NEAR(c.red(), r, tolerance) << "at " << x << "," << y;
    EXPECT_NEAR(c.green(), g, tolerance) << "at " << x << "," << y;
    EXPECT_NEAR(c.blue(), b, tolerance) << "at " << x << "," << y;
}

class CompositorLayersTest : public ::testing::Test {
protected:
    RoundedCameraCompositorSettings settings;
    CompositorLayers layers{settings};
};

TEST_F(CompositorLayersTest, GradientRunsOverTheHalfDiagonalFromItsStartPoint) {
    // Half diagonal L = sqrt(320^2 + 180^2) / 2 = 183.576, the line 367.151 long.
    // Angle 0 starts L above the centre (y upward): the top row's pixel centre (y 179.5) lies
    // (273.576 - 179.5) / 367.151 = 0.2562 along it, the bottom row's (y 0.5) 0.7438.
    const QImage vertical = CompositorLayers::createGradientImage(
        *gradientBackground({red, blue}, 0.0).gradient, smallCanvas);
    expectColor(vertical, 160, 0, 190, 0, 65);
    expectColor(vertical, 160, 179, 65, 0, 190);
    // Angle 90 starts L left of the centre, at x -23.576: the first column is
    // (0.5 + 23.576) / 367.151 = 0.0656 along, the last (319.5 + 23.576) / 367.151 = 0.9344.
    const QImage horizontal = CompositorLayers::createGradientImage(
        *gradientBackground({red, blue}, 90.0).gradient, smallCanvas);
    expectColor(horizontal, 0, 90, 238, 0, 17);
    expectColor(horizontal, 319, 90, 17, 0, 238);
}

TEST_F(CompositorLayersTest, GradientFallbacks) {
    // One colour is that colour everywhere; no colours, or no room, is black.
    const QImage single = CompositorLayers::createGradientImage(
        *gradientBackground({red}, 45.0).gradient, smallCanvas);
    expectColor(single, 0, 0, 255, 0, 0, 0);
    expectColor(single, 319, 179, 255, 0, 0, 0);
    const QImage none =
        CompositorLayers::createGradientImage(*gradientBackground({}, 0.0).gradient, smallCanvas);
    expectColor(none, 100, 100, 0, 0, 0, 0);
    EXPECT_EQ(none.size(), QSize(320, 180));
    expectColor(layers.createBackgroundImage(solidBackground(std::nullopt), smallCanvas), 5, 5, 0,
                0, 0, 0);
    BackgroundSettings picture;
    picture.type = StudioBackgroundType::image;
    picture.imageURL = QUrl::fromLocalFile(QStringLiteral("/tmp/some.png"));
    expectColor(layers.createBackgroundImage(picture, smallCanvas), 5, 5, 0, 0, 0, 0);
}

TEST_F(CompositorLayersTest, BackgroundCacheKeyIsSizeTypeAngleAndColourCount) {
    const QImage first =
        layers.createBackgroundImage(gradientBackground({red, blue}, 0.0), smallCanvas);
    // New colours at the same count are deliberately not seen: the same image comes back.
    const QImage recoloured =
        layers.createBackgroundImage(gradientBackground({blue, red}, 0.0), smallCanvas);
    EXPECT_EQ(recoloured.cacheKey(), first.cacheKey());
    expectColor(recoloured, 160, 0, 190, 0, 65);

    const QImage turned =
        layers.createBackgroundImage(gradientBackground({red, blue}, 90.0), smallCanvas);
    EXPECT_NE(turned.cacheKey(), first.cacheKey());
    const QImage threeColours =
        layers.createBackgroundImage(gradientBackground({red, blue, red}, 90.0), smallCanvas);
    EXPECT_NE(threeColours.cacheKey(), turned.cacheKey());
    const QImage resized =
        layers.createBackgroundImage(gradientBackground({red, blue, red}, 90.0), {160.0, 90.0});
    EXPECT_NE(resized.cacheKey(), threeColours.cacheKey());
    EXPECT_EQ(resized.size(), QSize(160, 90));

    // Picture backgrounds never hit, and clearing forgets everything.
    BackgroundSettings picture;
    picture.type = StudioBackgroundType::image;
    const QImage once = layers.createBackgroundImage(picture, smallCanvas);
    EXPECT_NE(layers.createBackgroundImage(picture, smallCanvas).cacheKey(), once.cacheKey());
    layers.createBackgroundImage(solidBackground(red), smallCanvas);
    layers.clearCaches();
    expectColor(layers.createBackgroundImage(solidBackground(blue), smallCanvas), 3, 3, 0, 0, 255,
                0);
}

// A 160x90 screen on 320x180 with padding 120 (20 px): fit = min(280 / 160, 140 / 90) = 1.5556,
// so the frame is 248.89 x 140 at x 20 + (280 - 248.89) / 2 = 35.56, y 20; the corner radius
// 28 is 4.67 px.
TEST_F(CompositorLayersTest, PaddingCentresTheScreenAndRoundsItsCorners) {
    settings.screenShadowOpacity = 0.0;
    const ScreenLayer layer =
        layers.applyVideoPaddingAndCorners(filled(160, 90, Qt::red), smallCanvas, 120.0, 28.0);
    ASSERT_TRUE(layer.frame);
    EXPECT_NEAR(layer.frame->x(), 35.556, 0.01);
    EXPECT_NEAR(layer.frame->y(), 20.0, 1e-9);
    EXPECT_NEAR(layer.frame->width(), 248.889, 0.01);
    EXPECT_NEAR(layer.frame->height(), 140.0, 1e-9);
    EXPECT_NEAR(layer.cornerRadius, 28.0 / 6.0, 1e-9);

    QImage canvas = filled(320, 180, Qt::white);
    LayerPainter::drawScreenLayer(canvas, layer);
    // The frame's corner pixel lies 5.6 px from the corner circle's centre: cut away.
    expectColor(canvas, 36, 20, 255, 255, 255, 0);
    expectColor(canvas, 283, 159, 255, 255, 255, 0);
    // Along the edges below and beside the corner, and in the middle: the screen.
    expectColor(canvas, 37, 30, 255, 0, 0, 0);
    expectColor(canvas, 160, 21, 255, 0, 0, 0);
    expectColor(canvas, 160, 90, 255, 0, 0, 0);
    // Outside the padded frame, and with no shadow: untouched.
    expectColor(canvas, 160, 163, 255, 255, 255, 0);
    expectColor(canvas, 30, 90, 255, 255, 255, 0);
}

TEST_F(CompositorLayersTest, ScreenShadowLiesOutsideTheFrameOnly) {
    // A fully transparent screen: whatever shows inside the frame is the shadow's own doing.
    const ScreenLayer layer = layers.applyVideoPaddingAndCorners(filled(160, 90, Qt::transparent),
                                                                 smallCanvas, 120.0, 28.0);
    QImage canvas = filled(320, 180, Qt::white);
    LayerPainter::drawScreenLayer(canvas, layer);
    expectColor(canvas, 160, 90, 255, 255, 255, 0);
    expectColor(canvas, 40, 25, 255, 255, 255, 0);
    // Shifted down by 10 / 6 px and blurred: darker just under the frame than just over it.
    const int below = canvas.pixelColor(160, 161).red();
    const int above = canvas.pixelColor(160, 18).red();
    EXPECT_LT(below, 235);
    EXPECT_LT(below, above);
    expectColor(canvas, 160, 179, 255, 255, 255, 2);
}

TEST_F(CompositorLayersTest, ShadowIsDrawnWithoutSeams) {
    // A 640x360 screen on 640x640 with padding 120 (71.1 px): the frame 497.8 x 280 at image
    // rows 180...460, radius 16.6. The shadow is drawn in bands around the frame that meet at
    // row 442.4; a row drawn twice there would stand out from the smooth column beside it.
    const ScreenLayer layer = layers.applyVideoPaddingAndCorners(filled(640, 360, Qt::transparent),
                                                                 {640.0, 640.0}, 120.0, 28.0);
    QImage canvas = filled(640, 640, Qt::white);
    LayerPainter::drawScreenLayer(canvas, layer);
    for (int y = 170; y < 470; ++y) {
        const int above = canvas.pixelColor(65, y - 1).red();
        const int here = canvas.pixelColor(65, y).red();
        const int below = canvas.pixelColor(65, y + 1).red();
        EXPECT_LE(std::abs(2 * here - above - below), 3) << "row " << y;
    }
}

TEST_F(CompositorLayersTest, MaskAndShadowAreCachedByFrameRadiusAndSize) {
    const QImage screen = filled(160, 90, Qt::red);
    const ScreenLayer first = layers.applyVideoPaddingAndCorners(screen, smallCanvas, 120.0, 28.0);
    const ScreenLayer again = layers.applyVideoPaddingAndCorners(screen, smallCanvas, 120.0, 28.0);
    EXPECT_EQ(again.mask.cacheKey(), first.mask.cacheKey());
    EXPECT_EQ(again.shadow.cacheKey(), first.shadow.cacheKey());
    const ScreenLayer rounder =
        layers.applyVideoPaddingAndCorners(screen, smallCanvas, 120.0, 40.0);
    EXPECT_NE(rounder.mask.cacheKey(), first.mask.cacheKey());
    EXPECT_NE(rounder.shadow.cacheKey(), first.shadow.cacheKey());
    const ScreenLayer narrower =
        layers.applyVideoPaddingAndCorners(screen, smallCanvas, 60.0, 40.0);
    EXPECT_NE(narrower.mask.cacheKey(), rounder.mask.cacheKey());
}

TEST_F(CompositorLayersTest, PaddingWithoutRoomLeavesTheScreenAsItIs) {
    // Padding 600 is 100 px: 180 - 200 leaves no height.
    const ScreenLayer layer =
        layers.applyVideoPaddingAndCorners(filled(160, 90, Qt::red), smallCanvas, 600.0, 28.0);
    EXPECT_FALSE(layer.frame);
    EXPECT_TRUE(layer.shadow.isNull());
    QImage canvas = filled(320, 180, Qt::white);
    LayerPainter::drawScreenLayer(canvas, layer);
    // Drawn at its own size from the lower left corner.
    expectColor(canvas, 0, 179, 255, 0, 0, 0);
    expectColor(canvas, 159, 90, 255, 0, 0, 0);
    expectColor(canvas, 160, 90, 255, 255, 255, 0);
    expectColor(canvas, 10, 89, 255, 255, 255, 0);
}

TEST_F(CompositorLayersTest, CameraScaleFollowsTheZoomRamps) {
    EXPECT_EQ(layers.cameraScaleAtTime(3.0), 1.0);
    settings.cameraSettings.shrinkFactor = 0.5;
    settings.zoomSegments = {segment(2.0, 4.0, 1.0, 1.0)};
    EXPECT_EQ(layers.cameraScaleAtTime(0.5), 1.0);
    EXPECT_EQ(layers.cameraScaleAtTime(3.0), 0.5);
    // Halfway through the ease in: the fifth-power ease of 0.5 is 0.5, scale 0.75.
    EXPECT_NEAR(layers.cameraScaleAtTime(1.5), 0.75, 1e-12);
    // A quarter into the ease out: ease 16 * 0.25^5 = 1/64, scale 0.5 + 0.5 / 64.
    EXPECT_NEAR(layers.cameraScaleAtTime(4.25), 0.5 + 0.5 / 64.0, 1e-12);
    EXPECT_EQ(layers.cameraScaleAtTime(5.5), 1.0);

    // Overlap: the first segment's ramp gives (0.75, weight 0.5), the second's body (0.5, 1).
    // Squared weights 0.25 and 1: (0.75 * 0.25 + 0.5) / 1.25 = 0.55.
    settings.zoomSegments = {segment(2.0, 4.0, 1.0, 1.0), segment(1.0, 3.0, 0.5, 0.5)};
    EXPECT_NEAR(layers.cameraScaleAtTime(1.5), 0.55, 1e-12);

    settings.cameraSettings.shrinkFactor = 1.0;
    EXPECT_EQ(layers.cameraScaleAtTime(1.5), 1.0);
    EXPECT_EQ(layers.cameraScaleAtTime(3.0), 1.0);
}

// A circle camera 0.25 of 320 wide (80 px), shrunk to half (40 px) on the zoom's body.
TEST_F(CompositorLayersTest, ShrinkingCameraKeepsItsNearestCorner) {
    settings.cameraSettings = {Point{0.2, 0.75}, 0.25, 0.5, 0.3, CameraShape::circle};
    settings.zoomSegments = {segment(1.0, 3.0, 0.5, 0.5)};
    const QImage camera = filled(64, 48, Qt::red);
    // Centre (64, 45) with y upward: unshrunk edges left 24, bottom 5, both nearer their side.
    EXPECT_EQ(layers.createRoundedCameraOverlay(camera, 2.0, smallCanvas).frame,
              Rect(24.0, 5.0, 40.0, 40.0));
    // Centre (256, 135): right 296 and top 175 are kept.
    settings.cameraSettings.centerNormalized = {0.8, 0.25};
    EXPECT_EQ(layers.createRoundedCameraOverlay(camera, 2.0, smallCanvas).frame,
              Rect(256.0, 135.0, 40.0, 40.0));
    // Exactly centred: the left test is strict, so the upper right corner stays.
    settings.cameraSettings.centerNormalized = {0.5, 0.5};
    EXPECT_EQ(layers.createRoundedCameraOverlay(camera, 2.0, smallCanvas).frame,
              Rect(160.0, 90.0, 40.0, 40.0));
    // Unshrunk before the ramp, and clamped into the canvas.
    settings.cameraSettings.centerNormalized = {0.99, 0.01};
    EXPECT_EQ(layers.createRoundedCameraOverlay(camera, 0.0, smallCanvas).frame,
              Rect(240.0, 100.0, 80.0, 80.0));
    // A rectangle keeps the camera's natural aspect: 80 x 45 for 1920 x 1080.
    settings.cameraSettings = {Point{0.2, 0.75}, 0.25, 0.5, 0.3, CameraShape::rectangle};
    EXPECT_EQ(layers.createRoundedCameraOverlay(camera, 0.0, smallCanvas).frame.size,
              (Size{80.0, 45.0}));
}

TEST_F(CompositorLayersTest, SquareCameraIsFilledAndCutToItsShape) {
    // A wide camera: red in its middle square, blue on both sides. Filling a square shows only
    // the middle; fitting would have shown blue at the sides.
    QImage camera = filled(200, 100, Qt::blue);
    QPainter(&camera).fillRect(50, 0, 100, 100, Qt::red);
    settings.cameraSettings = {Point{0.5, 0.5}, 0.25, 1.0, 0.3, CameraShape::circle};
    settings.cameraShadowOpacity = 0.0;
    const CameraOverlay overlay = layers.createRoundedCameraOverlay(camera, 0.0, smallCanvas);
    // Frame (120, 50, 80, 80), in image rows 50...130.
    EXPECT_EQ(overlay.frame, Rect(120.0, 50.0, 80.0, 80.0));
    QImage canvas = filled(320, 180, Qt::white);
    LayerPainter::drawPlaced(canvas, overlay.camera);
    expectColor(canvas, 160, 90, 255, 0, 0, 0);
    expectColor(canvas, 122, 90, 255, 0, 0, 2);
    expectColor(canvas, 197, 90, 255, 0, 0, 2);
    // The circle's corners are cut away; its edge is soft for about one pixel.
    expectColor(canvas, 121, 51, 255, 255, 255, 0);
    expectColor(canvas, 198, 128, 255, 255, 255, 0);
    const QColor edge = canvas.pixelColor(120, 90);
    EXPECT_GT(edge.green(), 0);
    EXPECT_LT(edge.green(), 255);
}

TEST_F(CompositorLayersTest, CameraShadowLiesUnderTheCameraToo) {
    settings.cameraShadowOpacity = 0.5;
    settings.cameraShadowRadius = 12.0;
    // On a 1080-high canvas: offset 8 px down, blur 12.
    const Size canvas{1920.0, 1080.0};
    const Rect frame(400.0, 400.0, 200.0, 200.0);
    const PlacedImage shadow = layers.createCameraShadow(frame, 20.0, canvas);
    ASSERT_FALSE(shadow.image.isNull());
    const auto alphaAt = [&](double x, double y) {
        const QPoint p = (QPointF(x, y) - shadow.position).toPoint();
        return qAlpha(shadow.image.pixel(p));
    };
    // No cut-out: under the middle of the camera the fill (0.5) lies over its own shadow (0.5),
    // 0.5 + 0.5 * (1 - 0.5) = 0.75.
    EXPECT_NEAR(alphaAt(500, 580), 191, 3);
    // Below the frame (image rows 480...680, shifted to 488...688) more than above it.
    EXPECT_GT(alphaAt(500, 684), alphaAt(500, 484) + 0);
    EXPECT_GT(alphaAt(500, 690), 0);
    EXPECT_LT(alphaAt(500, 470), 3);
    // Cached by frame, radius and size; an opacity of 0 gives none.
    EXPECT_EQ(layers.createCameraShadow(frame, 20.0, canvas).image.cacheKey(),
              shadow.image.cacheKey());
    settings.cameraShadowOpacity = 0.0;
    EXPECT_TRUE(layers.createCameraShadow(frame, 20.0, canvas).image.isNull());
}

// Every row's alpha depends only on the distance from the shadow's centre: it never grows
// outward, and a frame centred on a pixel edge gives rows that read the same both ways. Shapes
// from square corners to a circle, sizes down to under a pixel, blurs small and large.
TEST_F(CompositorLayersTest, CameraShadowRowsFallOffSymmetricallyFromTheCentre) {
    settings.cameraShadowOpacity = 0.6;
    const Size canvas{1920.0, 1080.0};
    for (const double blur : {1.0, 12.0, 40.0}) {
        settings.cameraShadowRadius = blur;
        for (const double width : {0.8, 37.0, 240.0}) {
            for (const double cornerShare : {0.0, 0.22, 0.5}) {
                // Centred on x = 700: symmetric about a pixel edge.
                const Rect frame(700.0 - width / 2.0, 300.25, width, 180.0);
                const PlacedImage shadow =
                    layers.createCameraShadow(frame, cornerShare * std::min(width, 180.0), canvas);
                ASSERT_FALSE(shadow.image.isNull());
                const QImage& image = shadow.image;
                const int centre = 700 - static_cast<int>(shadow.position.x());
                bool ok = true;
                for (int y = 0; y < image.height() && ok; ++y) {
                    for (int d = 0; d < centre && centre + d < image.width() && ok; ++d) {
                        const int right = qAlpha(image.pixel(centre + d, y));
                        ok = right == qAlpha(image.pixel(centre - 1 - d, y)) &&
                             (d == 0 || right <= qAlpha(image.pixel(centre + d - 1, y)));
                    }
                }
                EXPECT_TRUE(ok) << "blur " << blur << " width " << width << " corner "
                                << cornerShare;
            }
        }
    }
}

TEST_F(CompositorLayersTest, CameraMaskStoreStaysBounded) {
    const Rect frame(10.0, 10.0, 50.0, 50.0);
    const QImage first = layers.createRoundedRectMaskCached(frame, 8.0, smallCanvas, "camera");
    // Same whole-number key (10.4 truncates to 10): the same mask.
    EXPECT_EQ(
        layers.createRoundedRectMaskCached(Rect(10.4, 10.0, 50.0, 50.0), 8.0, smallCanvas, "camera")
            .cacheKey(),
        first.cacheKey());
    for (int i = 0; i < 10; ++i)
        layers.createRoundedRectMaskCached(Rect(20.0 + i, 10.0, 50.0, 50.0), 8.0, smallCanvas,
                                           "camera");
    EXPECT_EQ(layers.cameraMaskCacheCount(), 11);
    // The twelfth key empties the store first.
    layers.createRoundedRectMaskCached(Rect(40.0, 10.0, 50.0, 50.0), 8.0, smallCanvas, "camera");
    EXPECT_EQ(layers.cameraMaskCacheCount(), 1);
    EXPECT_NE(layers.createRoundedRectMaskCached(frame, 8.0, smallCanvas, "camera").cacheKey(),
              first.cacheKey());
}

TEST_F(CompositorLayersTest, ArrowCursorImage) {
    // 128 + 2 * 19.2 margin = 166 px; the tip at (19.2, 19.2); strokes 16 px white under 8 px
    // black along the path, then the fill over the inner halves. On row 100, left of the edge
    // at x 19.2: black from 15.2, white from 11.2; right of it the fill.
    const QImage cursor = CompositorLayers::createArrowCursorImage(128.0);
    ASSERT_EQ(cursor.size(), QSize(166, 166));
    EXPECT_EQ(qAlpha(cursor.pixel(3, 3)), 0);
    EXPECT_EQ(qAlpha(cursor.pixel(160, 20)), 0);
    expectColor(cursor, 13, 100, 255, 255, 255, 2);
    expectColor(cursor, 17, 100, 0, 0, 0, 2);
    expectColor(cursor, 35, 100, 255, 255, 255, 2);
    EXPECT_EQ(qAlpha(cursor.pixel(35, 100)), 255);
    EXPECT_EQ(layers.getCursorImage().cacheKey(), layers.getCursorImage().cacheKey());
}

} // namespace
