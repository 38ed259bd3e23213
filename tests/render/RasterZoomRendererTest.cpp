#include "render/RasterZoomRenderer.h"

#include "media/VideoFrame.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

double fakeNow = 100.0;
double fakeClock() {
    return fakeNow;
}

constexpr int width = 320;
constexpr int height = 240;

// Grey, with a red square of 10 pixels whose top-left corner is (75, 55): its centre is at
// (80, 60), a quarter of the way across and down.
VideoFrameHandle pattern() {
    auto frame = std::make_shared<VideoFrame>(
        VideoFrame::allocate(width, height, MediaTime::zero(), MediaTime::make(1, 60)));
    for (int y = 0; y < height; ++y) {
        uint8_t* row = frame->mutableBytes() + y * frame->bytesPerRow();
        for (int x = 0; x < width; ++x) {
            const bool red = x >= 75 && x < 85 && y >= 55 && y < 65;
            row[x * 4 + 0] = red ? 0 : 128;   // B
            row[x * 4 + 1] = red ? 0 : 128;   // G
            row[x * 4 + 2] = red ? 255 : 128; // R
            row[x * 4 + 3] = 255;
        }
    }
    return frame;
}

bool isRed(const VideoFrame& frame, int x, int y) {
    const uint8_t* p = frame.bytes() + y * frame.bytesPerRow() + x * 4;
    return p[2] > 190 && p[1] < 60;
}

// The red square's bounds in a frame: left, top, right, bottom (exclusive).
std::array<int, 4> redBounds(const VideoFrame& frame) {
    std::array<int, 4> bounds{width, height, -1, -1};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (isRed(frame, x, y)) {
                bounds[0] = std::min(bounds[0], x);
                bounds[1] = std::min(bounds[1], y);
                bounds[2] = std::max(bounds[2], x + 1);
                bounds[3] = std::max(bounds[3], y + 1);
            }
    return bounds;
}

// Steps the renderer at 60 frames per second for `seconds`, moving the clock along.
void run(RasterZoomRenderer& renderer, double seconds) {
    for (int i = 0; i < int(std::lround(seconds * 60)); ++i) {
        fakeNow += 1.0 / 60;
        renderer.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
    }
}

} // namespace

// A click at the square zooms in by the renderer's scale around it: once eased in, the square
// is 2.25 times as large and sits in the middle of the frame. After the zoom ends and eases
// out, frames are the source again.
TEST(RasterZoomRendererTest, ZoomsInAroundTheClickAndBackOut) {
    fakeNow = 100.0;
    RasterZoomRenderer renderer(&fakeClock);
    renderer.setCaptureFrame(Size{double(width), double(height)}, Point{0, 0});
    renderer.setFollowCursor(false);
    const VideoFrameHandle source = pattern();
    renderer.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
    EXPECT_FALSE(renderer.isAnimating());

    renderer.triggerClickZoom(Point{0.25, 0.25});
    EXPECT_TRUE(renderer.isAnimating());
    run(renderer, 0.2);
    const double halfway = renderer.zoomScaleCurrent();
    EXPECT_GT(halfway, 1.0);
    EXPECT_LT(halfway, 2.25);
    run(renderer, 0.4);
    EXPECT_NEAR(renderer.zoomScaleCurrent(), 2.25, 1e-9);

    VideoFrameHandle zoomed = renderer.processedPixelBuffer(source, false);
    ASSERT_TRUE(zoomed);
    ASSERT_NE(zoomed.get(), source.get());
    auto [left, top, right, bottom] = redBounds(*zoomed);
    EXPECT_NEAR(right - left, 10 * 2.25, 2.0);
    EXPECT_NEAR(bottom - top, 10 * 2.25, 2.0);
    EXPECT_NEAR((left + right) / 2.0, width / 2.0, 1.5);
    EXPECT_NEAR((top + bottom) / 2.0, height / 2.0, 1.5);

    renderer.endClickZoom();
    run(renderer, 0.6);
    EXPECT_DOUBLE_EQ(renderer.zoomScaleCurrent(), 1.0);
    EXPECT_FALSE(renderer.isAnimating());
    VideoFrameHandle back = renderer.processedPixelBuffer(source, false);
    ASSERT_TRUE(back);
    EXPECT_EQ(redBounds(*back), (std::array<int, 4>{75, 55, 85, 65}));
}

// At the corner the crop stays inside the frame: the top-left part of the picture fills it,
// so the square lands at 2.25 times its own place instead of the middle.
TEST(RasterZoomRendererTest, ACornerZoomKeepsTheCropInside) {
    fakeNow = 200.0;
    RasterZoomRenderer renderer(&fakeClock);
    renderer.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
    renderer.triggerClickZoom(Point{0, 0});
    run(renderer, 0.6);
    VideoFrameHandle zoomed = renderer.processedPixelBuffer(pattern(), false);
    ASSERT_TRUE(zoomed);
    auto [left, top, right, bottom] = redBounds(*zoomed);
    EXPECT_NEAR(left, 75 * 2.25, 2.0);
    EXPECT_NEAR(top, 55 * 2.25, 2.0);

    // A trigger while zooming out starts from the scale reached: no jump.
    renderer.endClickZoom();
    run(renderer, 0.1);
    const double between = renderer.zoomScaleCurrent();
    renderer.triggerClickZoom(Point{0.5, 0.5});
    renderer.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
    EXPECT_NEAR(renderer.zoomScaleCurrent(), between, 1e-9);
}

// The cursor feed: a point outside the capture clamps to its edge, and a renderer without a
// capture size anchors in the middle.
TEST(RasterZoomRendererTest, TheAnchorFollowsTheCursorAfterTheHold) {
    fakeNow = 300.0;
    RasterZoomRenderer renderer(&fakeClock);
    renderer.setCaptureFrame(Size{200, 100}, Point{100, 50});
    renderer.setFollowCursor(true);
    renderer.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
    renderer.triggerClickZoom(Point{0.5, 0.5});
    renderer.updateCursor(Point{400, 0}); // right of and below the capture: (1, 1) top-left
    run(renderer, 2.0);
    EXPECT_NEAR(renderer.anchorNormalizedCurrent().x, 1.0, 1e-3);
    EXPECT_NEAR(renderer.anchorNormalizedCurrent().y, 1.0, 1e-3);

    RasterZoomRenderer unsized(&fakeClock);
    unsized.setFollowCursor(true);
    unsized.updateCursor(Point{400, 0});
    unsized.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
    run(unsized, 2.0);
    EXPECT_NEAR(unsized.anchorNormalizedCurrent().x, 0.5, 1e-9);
}

// The recording's zoom level is the magnification a click zooms to: the square grows by that
// factor whatever the level, a level outside 1 to 3 is held to the range, and a smaller level
// set while zoomed takes the zoom down to it instead of leaving it beyond.
TEST(RasterZoomRendererTest, TheZoomLevelIsTheMagnification) {
    for (const double level : {1.5, 2.0, 3.0}) {
        fakeNow = 400.0;
        RasterZoomRenderer renderer(&fakeClock);
        renderer.setCaptureFrame(Size{double(width), double(height)}, Point{0, 0});
        renderer.setMaxZoomScale(level);
        renderer.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
        renderer.triggerClickZoom(Point{0.25, 0.25});
        run(renderer, 0.6);
        VideoFrameHandle zoomed = renderer.processedPixelBuffer(pattern(), false);
        ASSERT_TRUE(zoomed);
        auto [left, top, right, bottom] = redBounds(*zoomed);
        EXPECT_NEAR(right - left, 10 * level, 2.0) << level;
        EXPECT_NEAR(bottom - top, 10 * level, 2.0) << level;
    }

    fakeNow = 500.0;
    RasterZoomRenderer renderer(&fakeClock);
    renderer.setMaxZoomScale(7.0);
    renderer.updateAnimation(MediaTime::fromSeconds(fakeNow, 600000));
    renderer.triggerClickZoom(Point{0.5, 0.5});
    run(renderer, 0.6);
    EXPECT_NEAR(renderer.zoomScaleCurrent(), 3.0, 1e-9);
    renderer.setMaxZoomScale(1.25);
    run(renderer, 2.0);
    EXPECT_NEAR(renderer.zoomScaleCurrent(), 1.25, 1e-3);
}
