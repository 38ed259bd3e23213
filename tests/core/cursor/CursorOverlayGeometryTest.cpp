#include "core/cursor/CursorOverlayGeometry.h"

#include "core/zoom/ZoomTransform.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using namespace CursorOverlayGeometry;

void expectNear(Point actual, Point expected, double tolerance = 1e-9) {
    EXPECT_NEAR(actual.x, expected.x, tolerance);
    EXPECT_NEAR(actual.y, expected.y, tolerance);
}

void expectNear(const Rect& actual, const Rect& expected) {
    expectNear(actual.origin, expected.origin);
    EXPECT_NEAR(actual.size.width, expected.size.width, 1e-9);
    EXPECT_NEAR(actual.size.height, expected.size.height, 1e-9);
}

TEST(CursorOverlayGeometryTest, FitAndFillCentreTheSource) {
    const Rect square(0.0, 0.0, 1000.0, 1000.0);
    // 1920x1080 fitted: factor 1000 / 1920, height 562.5, centred 218.75 down.
    expectNear(fitRect({1920.0, 1080.0}, square, CursorOverlayFitMode::aspectFit),
               Rect(0.0, 218.75, 1000.0, 562.5));
    // Filled: factor 1000 / 1080, width 1777.78, centred 388.89 to the left.
    expectNear(
        fitRect({1920.0, 1080.0}, square, CursorOverlayFitMode::aspectFill),
        Rect(-(1920.0 * 1000.0 / 1080.0 - 1000.0) / 2.0, 0.0, 1920.0 * 1000.0 / 1080.0, 1000.0));
    EXPECT_EQ(fitRect({0.0, 10.0}, square, CursorOverlayFitMode::aspectFit), square);
}

TEST(CursorOverlayGeometryTest, HotspotsInBothYConventions) {
    const Rect content(10.0, 20.0, 200.0, 100.0);
    // x 10 + 0.25 * 200 = 60; y down from 20 by 0.2 * 100, or up from the top 120 by 20.
    EXPECT_EQ(swiftUIHotspotPoint({0.25, 0.2}, content), (Point{60.0, 40.0}));
    EXPECT_EQ(coreImageHotspotPoint({0.25, 0.2}, content), (Point{60.0, 100.0}));
}

// No zoom, or nothing to draw into, leaves the point alone.
TEST(CursorOverlayGeometryTest, NoZoomLeavesAPointAlone) {
    EXPECT_EQ(applyZoom({12.0, 34.0}, 1.0005, {0.2, 0.2}, {1000.0, 1000.0}), (Point{12.0, 34.0}));
    EXPECT_EQ(applyZoom({12.0, 34.0}, 2.0, {0.2, 0.2}, {0.0, 0.0}), (Point{12.0, 34.0}));
}

// The cursor must move with the picture: zooming a bottom-left point equals applying the
// camera's top-left transform to the same point and flipping y back.
TEST(CursorOverlayGeometryTest, PointZoomAgreesWithTheCameraTransform) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int i = 0; i < 300; ++i) {
        const Size render{200.0 + 3000.0 * unit(random), 200.0 + 3000.0 * unit(random)};
        const double scale = 1.01 + 2.0 * unit(random);
        const Point focus{unit(random), unit(random)};
        const Point topLeft{render.width * unit(random), render.height * unit(random)};
        const Point viaCamera = zoomTransform(focus, scale, 1.0, render).apply(topLeft);
        const Point zoomed =
            applyZoom({topLeft.x, render.height - topLeft.y}, scale, focus, render);
        expectNear(zoomed, {viaCamera.x, render.height - viaCamera.y}, 1e-6);
    }
}

TEST(CursorOverlayGeometryTest, SourceZoomKeepsTheFocus) {
    const Rect extent(100.0, 50.0, 400.0, 200.0);
    // Focus (0.5, 0.5) is pixel (300, 150); 2x doubles distances from it.
    EXPECT_EQ(applySourceZoom({300.0, 150.0}, extent, 2.0, {0.5, 0.5}), (Point{300.0, 150.0}));
    EXPECT_EQ(applySourceZoom({400.0, 150.0}, extent, 2.0, {0.5, 0.5}), (Point{500.0, 150.0}));
    // Focus (0.1, 0.1) top-left clamps to (0.25, 0.25): x 100 + 100, y 50 + 0.75 * 200.
    EXPECT_EQ(applySourceZoom({200.0, 200.0}, extent, 2.0, {0.1, 0.1}), (Point{200.0, 200.0}));
    EXPECT_EQ(applySourceZoom({1.0, 2.0}, extent, 1.0, {0.1, 0.1}), (Point{1.0, 2.0}));
}

TEST(CursorOverlayGeometryTest, MappingFollowsTheFit) {
    const Rect extent(0.0, 0.0, 200.0, 100.0);
    const Rect target(10.0, 10.0, 100.0, 100.0);
    // Fit: factor 0.5, 25 down; the extent's far corner goes to (110, 85), the fitted corner.
    const Rect fitted = fitRect(extent.size, target, CursorOverlayFitMode::aspectFit);
    EXPECT_EQ(mapSourcePointToFittedFrame({200.0, 100.0}, extent, target,
                                          CursorOverlayFitMode::aspectFit),
              (Point{fitted.maxX(), fitted.maxY()}));
    EXPECT_EQ(fitted.maxY(), 85.0);
    // Fill: factor 1, 50 to the left: the origin goes to (-40, 10).
    EXPECT_EQ(
        mapSourcePointToFittedFrame({0.0, 0.0}, extent, target, CursorOverlayFitMode::aspectFill),
        (Point{-40.0, 10.0}));
    EXPECT_EQ(mapSourcePointToFittedFrame({7.0, 8.0}, Rect(0.0, 0.0, 0.0, 5.0), target,
                                          CursorOverlayFitMode::aspectFit),
              (Point{7.0, 8.0}));
}

TEST(CursorOverlayGeometryTest, GlobalBottomLeftRectOfADisplay) {
    // A second display right of a 1920 wide one, 1080 high: 200 down from its top with a height
    // of 400 puts the rectangle's bottom at 1080 - 600 = 480.
    EXPECT_EQ(
        globalBottomLeftRect(Rect(100.0, 200.0, 300.0, 400.0), Rect(1920.0, 0.0, 1920.0, 1080.0)),
        Rect(2020.0, 480.0, 300.0, 400.0));
}

TEST(CursorOverlayGeometryTest, CursorFrameAndDrawOrigin) {
    // 32 at 1080 and scale 1; on 2160 at scale 1.5 that is 32 * 1.5 * 2 = 96.
    EXPECT_EQ(cursorFrameSize(2160.0, 1.5), (Size{96.0, 96.0}));
    EXPECT_EQ(cursorFrameSize(1920.0, 1.0, 1920.0), (Size{32.0, 32.0}));
    // Padding 0.1 of 130: the tip is 13 in from the left and 13 down from the top, so the frame's
    // bottom-left corner is at x 100 - 13 and y 100 - 117.
    EXPECT_EQ(coreImageDrawOriginForHotspot({100.0, 100.0}, {130.0, 130.0}, 0.1),
              (Point{87.0, -17.0}));
    // The default padding of a 130 frame is 15 (0.15 of the 100 glyph).
    expectNear(coreImageDrawOriginForHotspot({100.0, 100.0}, {130.0, 130.0}), {85.0, -15.0});
    EXPECT_DOUBLE_EQ(coreImageCursorScale({166.0, 166.0}, {48.0, 48.0}), 48.0 / 166.0);
    EXPECT_EQ(coreImageCursorScale({0.0, 0.0}, {48.0, 48.0}), 1.0);
}

} // namespace
