#include "render/RoundedCameraCompositor.h"
#include "render/RoundedCameraCompositionInstruction.h"

#include <QPainter>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>

namespace {

QImage filled(int width, int height, QColor color) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return image;
}

BackgroundSettings solidBackground(CodableColor color) {
    BackgroundSettings settings;
    settings.type = StudioBackgroundType::solidColor;
    settings.color = color;
    return settings;
}

ZoomSegment zoomOn(Point focus, double level) {
    ZoomSegment s;
    s.startTime = 1.0;
    s.endTime = 9.0;
    s.easeIn = 0.5;
    s.easeOut = 0.5;
    s.zoomLevel = level;
    s.focusPoint = focus;
    return s;
}

CompositionRequest request(double t, Size size, std::vector<QImage> frames) {
    CompositionRequest r;
    r.compositionTime = t;
    r.renderSize = size;
    r.sourceFrames = std::move(frames);
    return r;
}

QImage compose(RoundedCameraCompositor& compositor, double t, Size size,
               std::vector<QImage> frames) {
    CompositionResult result = compositor.processRequest(request(t, size, std::move(frames)));
    EXPECT_FALSE(result.error);
    return result.composedFrame.value_or(QImage());
}

bool isColor(const QImage& image, int x, int y, QColor expected, int tolerance = 2) {
    const QColor c = image.pixelColor(x, y);
    return std::abs(c.red() - expected.red()) <= tolerance &&
           std::abs(c.green() - expected.green()) <= tolerance &&
           std::abs(c.blue() - expected.blue()) <= tolerance;
}

// The bounding box of pixels brighter than `threshold` in every channel.
QRect brightBox(const QImage& image, int threshold = 200) {
    QRect box;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c.red() > threshold && c.green() > threshold && c.blue() > threshold)
                box |= QRect(x, y, 1, 1);
        }
    }
    return box;
}

class RoundedCameraCompositorTest : public ::testing::Test {
protected:
    RoundedCameraCompositorTest() { settings.cursorOverlaySettings.enabled = false; }
    RoundedCameraCompositorSettings settings;
};

TEST_F(RoundedCameraCompositorTest, WithoutBackgroundTheScreenSitsUnpaddedOnBlack) {
    RoundedCameraCompositor compositor(settings);
    const QImage frame = compose(compositor, 0.0, {320, 180}, {filled(160, 90, Qt::red)});
    ASSERT_EQ(frame.size(), QSize(320, 180));
    // At its own size from the lower left corner.
    EXPECT_TRUE(isColor(frame, 1, 178, Qt::red));
    EXPECT_TRUE(isColor(frame, 159, 90, Qt::red));
    EXPECT_TRUE(isColor(frame, 160, 178, Qt::black));
    EXPECT_TRUE(isColor(frame, 10, 89, Qt::black));
}

// Frames are painted into the last one handed out once its holder lets go: one still held must
// never be painted over, and a reused one must be wholly repainted.
TEST_F(RoundedCameraCompositorTest, HeldFramesAreNeverPaintedOver) {
    RoundedCameraCompositor compositor(settings);
    const QImage kept = compose(compositor, 0.0, {64, 36}, {filled(64, 36, Qt::red)});
    const QImage next = compose(compositor, 0.0, {64, 36}, {filled(64, 36, Qt::blue)});
    EXPECT_NE(next.constBits(), kept.constBits());
    EXPECT_TRUE(isColor(kept, 32, 18, Qt::red));
    EXPECT_TRUE(isColor(next, 32, 18, Qt::blue));
    for (const QColor color : {Qt::green, Qt::yellow, Qt::cyan}) {
        // Each of these is dropped at once, so the next one may land in its buffer.
        const QImage frame = compose(compositor, 0.0, {64, 36}, {filled(64, 36, color)});
        EXPECT_TRUE(isColor(frame, 0, 0, color));
        EXPECT_TRUE(isColor(frame, 63, 35, color));
    }
    EXPECT_TRUE(isColor(kept, 32, 18, Qt::red));
    EXPECT_TRUE(isColor(next, 32, 18, Qt::blue));
}

TEST_F(RoundedCameraCompositorTest, MissingTracksDegradeToTheLayersThatExist) {
    settings.backgroundSettings = solidBackground({1.0, 1.0, 1.0, 1.0});
    settings.backgroundEnabled = true;
    settings.cameraSettings = {Point{0.5, 0.5}, 0.25, 1.0, 0.3, CameraShape::rectangle};
    settings.cameraNaturalSize = {160.0, 90.0};
    settings.cameraShadowOpacity = 0.0;
    RoundedCameraCompositor compositor(settings);
    // No screen at index 0: the camera at index 1 still shows, over the background only.
    // Camera frame 80 x 45 around the centre: image rows 67.5...112.5.
    const QImage cameraOnly =
        compose(compositor, 0.0, {320, 180}, {QImage(), filled(16, 9, Qt::blue)});
    EXPECT_TRUE(isColor(cameraOnly, 160, 90, Qt::blue));
    EXPECT_TRUE(isColor(cameraOnly, 160, 60, Qt::white));
    EXPECT_TRUE(isColor(cameraOnly, 20, 90, Qt::white));
    // No camera: the padded screen over the background.
    const QImage screenOnly = compose(compositor, 0.0, {320, 180}, {filled(160, 90, Qt::red)});
    EXPECT_TRUE(isColor(screenOnly, 160, 90, Qt::red));
    EXPECT_TRUE(isColor(screenOnly, 10, 10, Qt::white));
    // Neither: the background alone, still a frame.
    const QImage nothing = compose(compositor, 0.0, {320, 180}, {QImage(), QImage()});
    EXPECT_TRUE(isColor(nothing, 160, 90, Qt::white));
}

TEST_F(RoundedCameraCompositorTest, InstructionOrdersFramesByItsTrackListNotByIdentifier) {
    // Screen track 7 listed before camera track 3: the screen is index 0 although its number is
    // larger, and a track without a frame keeps its place as a null image.
    const RoundedCameraCompositionInstruction instruction(
        {MediaTime::zero(), MediaTime::make(10, 1)}, {7, 3});
    EXPECT_TRUE(instruction.containsTweening);
    EXPECT_EQ(instruction.passthroughTrackID, RoundedCameraCompositionInstruction::invalidTrackID);
    const auto frames = instruction.sourceFrames(
        [](std::int32_t trackID) { return trackID == 3 ? filled(16, 9, Qt::blue) : QImage(); });
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_TRUE(frames[0].isNull());
    EXPECT_EQ(frames[1].pixelColor(0, 0), QColor(Qt::blue));

    settings.cameraSettings = {Point{0.5, 0.5}, 0.25, 1.0, 0.3, CameraShape::rectangle};
    settings.cameraShadowOpacity = 0.0;
    RoundedCameraCompositor compositor(settings);
    const QImage composed = compose(compositor, 0.0, {320, 180}, frames);
    EXPECT_TRUE(isColor(composed, 160, 90, Qt::blue));
    EXPECT_TRUE(isColor(composed, 20, 90, Qt::black));
}

TEST_F(RoundedCameraCompositorTest, ScreenShadowFollowsTheZoom) {
    // Padding 20 px on 320x180: the frame's lower edge at image row 160, its shadow just below.
    settings.backgroundSettings = solidBackground({1.0, 1.0, 1.0, 1.0});
    settings.backgroundEnabled = true;
    const QImage screen = filled(160, 90, Qt::red);
    RoundedCameraCompositor still(settings);
    const QImage flat = compose(still, 0.0, {320, 180}, {screen});
    EXPECT_LT(flat.pixelColor(160, 161).red(), 235);
    EXPECT_TRUE(isColor(flat, 160, 175, Qt::white));
    // Zoomed 1.2x on the centre: the edge moves to 90 + 70 * 1.2 = 174, its shadow with it.
    settings.zoomSegments = {zoomOn({0.5, 0.5}, 1.2)};
    RoundedCameraCompositor zooming(settings);
    const QImage zoomed = compose(zooming, 5.0, {320, 180}, {screen});
    EXPECT_TRUE(isColor(zoomed, 160, 172, Qt::red));
    EXPECT_LT(zoomed.pixelColor(160, 175).red(), 235);
    EXPECT_TRUE(isColor(zoomed, 160, 163, Qt::red));
}

// An opaque screen (no alpha channel) lets the canvas skip painting what it hides; the frames
// must come out exactly as with the same picture given with alpha, which paints everything.
// Checked through a zoom's ease in and out, padded and unpadded, over reused canvases.
TEST_F(RoundedCameraCompositorTest, OpaqueScreenComposesLikeTheSamePictureWithAlpha) {
    QImage withAlpha(160, 90, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < 90; ++y)
        for (int x = 0; x < 160; ++x)
            withAlpha.setPixel(x, y, qRgb(x * 255 / 159, y * 255 / 89, (x ^ y) & 0xff));
    const QImage opaque = withAlpha.convertToFormat(QImage::Format_RGB32);
    settings.zoomSegments = {zoomOn({0.3, 0.6}, 2.5)};
    for (const bool padded : {true, false}) {
        settings.backgroundEnabled = padded;
        settings.backgroundSettings = BackgroundSettings{
            StudioBackgroundType::gradient, gradientSettings(GradientPreset::ocean), {}, {}, 1.0};
        RoundedCameraCompositor painted(settings);
        RoundedCameraCompositor skipping(settings);
        for (const double t : {0.2, 0.7, 0.9, 1.0, 5.0, 9.2, 9.4, 9.8}) {
            // Copies, so that each compositor paints over its own previous canvas.
            const QImage expected = compose(painted, t, {320, 180}, {withAlpha}).copy();
            const QImage actual = compose(skipping, t, {320, 180}, {opaque}).copy();
            ASSERT_EQ(actual, expected) << (padded ? "padded" : "unpadded") << " at " << t;
        }
    }
}

TEST_F(RoundedCameraCompositorTest, NoOutputBufferIsTheOnlyFailure) {
    RoundedCameraCompositor compositor(settings);
    CompositionRequest r = request(0.0, {320, 180}, {filled(16, 9, Qt::red)});
    r.newPixelBuffer = [](Size) { return QImage(); };
    const CompositionResult result = compositor.processRequest(r);
    EXPECT_FALSE(result.composedFrame);
    EXPECT_TRUE(result.error);
}

// A 320x180 screen on a 320x180 canvas with no padding: canvas and source pixels coincide.
TEST_F(RoundedCameraCompositorTest, ZoomBringsTheFocusToTheCentre) {
    QImage screen = filled(320, 180, Qt::white);
    // Focus (0.375, 0.375) is pixel (120, 67.5); a green 8x8 block at (116, 64).
    QPainter(&screen).fillRect(116, 64, 8, 8, Qt::green);
    settings.zoomSegments = {zoomOn({0.375, 0.375}, 2.0)};
    RoundedCameraCompositor compositor(settings);
    const QImage frame = compose(compositor, 5.0, {320, 180}, {screen});
    // Twice as large about the centre (160, 90): x (116 - 120) * 2 + 160 = 152 to 168,
    // y (64 - 67.5) * 2 + 90 = 83 to 99.
    QRect green;
    for (int y = 0; y < frame.height(); ++y) {
        for (int x = 0; x < frame.width(); ++x) {
            if (isColor(frame, x, y, Qt::green, 60))
                green |= QRect(x, y, 1, 1);
        }
    }
    EXPECT_NEAR(green.left(), 152, 1);
    EXPECT_NEAR(green.right(), 167, 1);
    EXPECT_NEAR(green.top(), 83, 1);
    EXPECT_NEAR(green.bottom(), 98, 1);
}

TEST_F(RoundedCameraCompositorTest, ZoomCentreIsClampedToTheCanvas) {
    QImage screen = filled(320, 180, Qt::white);
    QPainter(&screen).fillRect(0, 0, 20, 20, Qt::red);
    // Focus (0, 0) at scale 2 clamps to (0.25, 0.25): the top left quarter fills the canvas,
    // so the 20 px red corner becomes 40 px.
    settings.zoomSegments = {zoomOn({0.0, 0.0}, 2.0)};
    RoundedCameraCompositor compositor(settings);
    const QImage frame = compose(compositor, 5.0, {320, 180}, {screen});
    EXPECT_TRUE(isColor(frame, 0, 0, Qt::red));
    EXPECT_TRUE(isColor(frame, 37, 37, Qt::red));
    EXPECT_TRUE(isColor(frame, 43, 43, Qt::white));
}

TEST_F(RoundedCameraCompositorTest, ScaleOfOnePointZeroZeroOneIsNoZoom) {
    RoundedCameraCompositor compositor(settings);
    settings.zoomSegments = {zoomOn({0.2, 0.2}, 1.001)};
    EXPECT_TRUE(compositor.zoomTransform(5.0, {320, 180}).isIdentity());
    settings.zoomSegments = {zoomOn({0.2, 0.2}, 1.01)};
    RoundedCameraCompositor zooming(settings);
    EXPECT_FALSE(zooming.zoomTransform(5.0, {320, 180}).isIdentity());
}

TEST_F(RoundedCameraCompositorTest, ZoomedSourceExtentBoundsTheZoomedCorners) {
    const Rect extent(0.0, 0.0, 200.0, 100.0);
    EXPECT_EQ(RoundedCameraCompositor::zoomedSourceExtent(extent, 1.001, {0.3, 0.3}), extent);
    // Scale 2 about the focus (0.5, 0.5) = (100, 50): corners go to (-100, -50) and (300, 150).
    EXPECT_EQ(RoundedCameraCompositor::zoomedSourceExtent(extent, 2.0, {0.5, 0.5}),
              Rect(-100.0, -50.0, 400.0, 200.0));
    // The image zoom keeps its pivot, here (50, 75) with y upward, and its enlarged extent.
    const QTransform zoom =
        RoundedCameraCompositor::applyZoomToImage({200.0, 100.0}, 2.0, {0.25, 0.25});
    EXPECT_EQ(zoom.map(QPointF(50.0, 75.0)), QPointF(50.0, 75.0));
    EXPECT_EQ(zoom.mapRect(QRectF(0.0, 0.0, 200.0, 100.0)), QRectF(-50.0, -75.0, 400.0, 200.0));
}

// A black screen 320x180 on a black 640x360 canvas with padding 120 (40 px): fit 1.5556, the
// content 497.78 x 280 at (71.11, 40). The cursor at (0.5, 0.25) has its hot spot at
// x 71.11 + 248.89 = 320 and, counting 0.25 of 280 down from the top at 320, y 250 upward,
// which is image row 110.
TEST_F(RoundedCameraCompositorTest, CursorHotspotLandsOnThePointedPixel) {
    settings.backgroundSettings = solidBackground({0.0, 0.0, 0.0, 1.0});
    settings.backgroundEnabled = true;
    settings.screenShadowOpacity = 0.0;
    settings.cursorOverlaySettings.enabled = true;
    settings.cursorPositions = {{QUuid::createUuid(), 0.0, {0.5, 0.25}}};
    {
        RoundedCameraCompositor compositor(settings);
        const QRect cursor =
            brightBox(compose(compositor, 5.0, {640, 360}, {filled(320, 180, Qt::black)}));
        ASSERT_FALSE(cursor.isEmpty());
        // The arrow's tip is its top left; the white outline adds under a pixel.
        EXPECT_NEAR(cursor.left(), 320, 1);
        EXPECT_NEAR(cursor.top(), 110, 1);
        // The arrow is 16 px tall frame at this height: 0.85 of its 12.3 px glyph, about 10 px.
        EXPECT_NEAR(cursor.height(), 12, 2);
    }
    // Zoomed 2x on the canvas centre (320, 180): 70 px above it becomes 140, image row 40.
    settings.zoomSegments = {zoomOn({0.5, 0.5}, 2.0)};
    RoundedCameraCompositor compositor(settings);
    const QRect zoomed =
        brightBox(compose(compositor, 5.0, {640, 360}, {filled(320, 180, Qt::black)}));
    EXPECT_NEAR(zoomed.left(), 320, 1);
    EXPECT_NEAR(zoomed.top(), 40, 1);
    // Drawn after the zoom: the arrow keeps its size.
    EXPECT_NEAR(zoomed.height(), 12, 2);
}

TEST_F(RoundedCameraCompositorTest, EditedCursorDataReachesAComposingCompositor) {
    // The preview keeps one compositor while the user edits: new positions must show.
    settings.cursorOverlaySettings.enabled = true;
    settings.cursorPositions = {{QUuid::createUuid(), 0.0, {0.5, 0.5}}};
    RoundedCameraCompositor compositor(settings);
    const QImage screen = filled(320, 180, Qt::black);
    EXPECT_NEAR(brightBox(compose(compositor, 0.0, {320, 180}, {screen})).left(), 160, 1);
    settings.cursorPositions = {{QUuid::createUuid(), 0.0, {0.25, 0.5}}};
    EXPECT_NEAR(brightBox(compose(compositor, 0.0, {320, 180}, {screen})).left(), 80, 1);
    settings.cursorOverlaySettings.scale = 3.0;
    EXPECT_GT(brightBox(compose(compositor, 0.0, {320, 180}, {screen})).height(), 8);
}

TEST_F(RoundedCameraCompositorTest, CursorMotionBlurSmearsAlongTheMotion) {
    settings.cursorOverlaySettings.enabled = true;
    settings.cursorOverlaySettings.smoothing = 0.0;
    // Left to right at 3.2 screen widths a second: well past the threshold, full blur amount
    // 0.25, which on a 720-high canvas is a smear of 30 * 2/3 * 0.25 = 5 px each way.
    for (int i = 0; i <= 25; ++i)
        settings.cursorPositions.push_back(
            {QUuid::createUuid(), i / 100.0, {0.1 + 0.8 * i / 25.0, 0.5}});
    const CursorState state =
        CursorOverlayRenderer(settings.cursorOverlaySettings, settings.cursorPositions, {})
            .cursorState(0.125);
    ASSERT_NEAR(state.motionBlurAmount, 0.25, 1e-9);
    RoundedCameraCompositor compositor(settings);
    const QImage moving = compose(compositor, 0.125, {1280, 720}, {filled(640, 360, Qt::black)});
    settings.cursorPositions = {{QUuid::createUuid(), 0.0, {0.5, 0.5}}};
    RoundedCameraCompositor resting(settings);
    const QImage still = compose(resting, 0.125, {1280, 720}, {filled(640, 360, Qt::black)});
    const QRect blurred = brightBox(moving, 8);
    const QRect sharp = brightBox(still, 8);
    EXPECT_GT(blurred.width(), sharp.width() + 6);
    EXPECT_LE(std::abs(blurred.height() - sharp.height()), 2);
}

// 360x640: unit 1/3, gap 2.67, camera rows 1.33...222.67, screen rows 225.33...638.67.
TEST_F(RoundedCameraCompositorTest, VerticalStackPutsCameraOverScreen) {
    settings.backgroundSettings = solidBackground({0.0, 0.0, 1.0, 1.0});
    settings.verticalStack = true;
    settings.cursorOverlaySettings.enabled = true;
    settings.cursorPositions = {{QUuid::createUuid(), 0.0, {0.5, 0.5}}};
    RoundedCameraCompositor compositor(settings);
    const QImage frame = compose(compositor, 0.0, {360, 640},
                                 {filled(320, 180, Qt::darkGreen), filled(160, 90, Qt::red)});

    EXPECT_TRUE(isColor(frame, 180, 100, Qt::red));
    EXPECT_TRUE(isColor(frame, 180, 223, Qt::blue));
    EXPECT_TRUE(isColor(frame, 180, 224, Qt::blue));
    EXPECT_TRUE(isColor(frame, 180, 300, Qt::darkGreen));
    // Rounded panels: the background shows in the corners.
    EXPECT_TRUE(isColor(frame, 2, 2, Qt::blue, 8));
    EXPECT_TRUE(isColor(frame, 2, 637, Qt::blue, 8));
    EXPECT_TRUE(isColor(frame, 6, 6, Qt::red));
    // The cursor at the source's centre lands at the screen panel's centre (180, 432): filling
    // scales the source about its middle.
    const QRect cursor = brightBox(frame);
    EXPECT_NEAR(cursor.left(), 180, 1);
    EXPECT_NEAR(cursor.top(), 432, 1);

    // Without a camera frame the normal layout runs: unpadded screen at the lower left.
    const QImage alone = compose(compositor, 0.0, {360, 640}, {filled(320, 180, Qt::darkGreen)});
    EXPECT_TRUE(isColor(alone, 10, 630, Qt::darkGreen));
    EXPECT_TRUE(isColor(alone, 180, 100, Qt::blue));
}

TEST_F(RoundedCameraCompositorTest, EachCompositorReadsItsOwnSettings) {
    RoundedCameraCompositorSettings preview;
    preview.cursorOverlaySettings.enabled = false;
    settings.backgroundSettings = solidBackground({1.0, 0.0, 0.0, 1.0});
    preview.backgroundSettings = solidBackground({0.0, 0.0, 1.0, 1.0});
    RoundedCameraCompositor exporting(settings);
    RoundedCameraCompositor previewing(preview);
    EXPECT_TRUE(isColor(compose(exporting, 0.0, {64, 36}, {}), 5, 5, Qt::red));
    EXPECT_TRUE(isColor(compose(previewing, 0.0, {64, 36}, {}), 5, 5, Qt::blue));
    // The preview's edits reach the preview only.
    preview.backgroundSettings = solidBackground({0.0, 1.0, 0.0, 1.0});
    preview.backgroundSettings->type = StudioBackgroundType::gradient;
    EXPECT_TRUE(isColor(compose(exporting, 0.0, {64, 36}, {}), 5, 5, Qt::red));
    EXPECT_TRUE(isColor(compose(previewing, 0.0, {64, 36}, {}), 5, 5, Qt::black));

    // By default a compositor reads the shared object.
    RoundedCameraCompositorSettings& shared = RoundedCameraCompositorSettings::shared();
    const auto saved = shared.backgroundSettings;
    shared.backgroundSettings = solidBackground({0.0, 1.0, 0.0, 1.0});
    RoundedCameraCompositor byDefault;
    EXPECT_EQ(&byDefault.settings(), &shared);
    EXPECT_TRUE(isColor(compose(byDefault, 0.0, {64, 36}, {}), 5, 5, Qt::green));
    shared.backgroundSettings = saved;
}

TEST_F(RoundedCameraCompositorTest, RequestsAreAnsweredInOrder) {
    settings.backgroundSettings = solidBackground({1.0, 0.0, 0.0, 1.0});
    RoundedCameraCompositor compositor(settings);
    std::mutex mutex;
    std::vector<double> times;
    std::vector<QImage> frames;
    std::promise<void> done;
    constexpr int count = 12;
    for (int i = 0; i < count; ++i) {
        CompositionRequest r = request(i / 60.0, {64, 36}, {filled(32, 18, Qt::green)});
        r.finish = [&, i](CompositionResult result) {
            std::lock_guard lock(mutex);
            times.push_back(result.compositionTime);
            frames.push_back(result.composedFrame.value_or(QImage()));
            if (i == count - 1)
                done.set_value();
        };
        compositor.startRequest(std::move(r));
    }
    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    std::lock_guard lock(mutex);
    ASSERT_EQ(times.size(), std::size_t(count));
    for (int i = 0; i < count; ++i) {
        EXPECT_DOUBLE_EQ(times[i], i / 60.0);
        EXPECT_EQ(frames[i].size(), QSize(64, 36));
    }
}

TEST_F(RoundedCameraCompositorTest, ContextChangeDropsTheCachesBeforeTheNextFrame) {
    settings.backgroundSettings = solidBackground({1.0, 0.0, 0.0, 1.0});
    RoundedCameraCompositor compositor(settings);
    const auto composeOnStage = [&] {
        // Shared, so that an answer after the bound below has somewhere to go.
        auto frame = std::make_shared<std::promise<QImage>>();
        CompositionRequest r = request(0.0, {64, 36}, {});
        r.finish = [frame](CompositionResult result) {
            frame->set_value(result.composedFrame.value_or(QImage()));
        };
        std::future<QImage> composed = frame->get_future();
        compositor.startRequest(std::move(r));
        // A stage that never answers gives an empty picture, which fails the checks below.
        if (composed.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
            return QImage();
        return composed.get();
    };
    EXPECT_TRUE(isColor(composeOnStage(), 5, 5, Qt::red));
    // The cache key ignores a new solid colour, so red stays until the context changes.
    settings.backgroundSettings = solidBackground({0.0, 0.0, 1.0, 1.0});
    EXPECT_TRUE(isColor(composeOnStage(), 5, 5, Qt::red));
    compositor.renderContextChanged();
    EXPECT_TRUE(isColor(composeOnStage(), 5, 5, Qt::blue));
}

} // namespace
