// Styled export frames: everything on (gradient, padding, corners, shadows, zoom, cursor with
// motion blur, circle camera) against plain QPainter work on the same frame, all in one run.
#include "BaselineRatioReporter.h"

#include "render/RoundedCameraCompositor.h"

#include <QPainter>

#include <memory>

namespace {

// A decoded video frame: opaque, so it comes without alpha.
QImage screenFrame() {
    QImage screen(1920, 1080, QImage::Format_RGB32);
    screen.fill(QColor(230, 230, 235));
    QPainter painter(&screen);
    for (int i = 0; i < 40; ++i)
        painter.fillRect(40 + i * 45, 80 + (i % 7) * 130, 38, 100,
                         QColor::fromHsv(i * 9, 180, 200));
    return screen;
}

QImage cameraFrame() {
    QImage camera(1280, 720, QImage::Format_ARGB32_Premultiplied);
    camera.fill(QColor(200, 120, 60));
    QPainter painter(&camera);
    painter.setBrush(Qt::yellow);
    painter.drawEllipse(440, 160, 400, 400);
    return camera;
}

std::unique_ptr<RoundedCameraCompositorSettings> styledSettings() {
    auto settings = std::make_unique<RoundedCameraCompositorSettings>();
    settings->backgroundEnabled = true;
    settings->backgroundSettings = BackgroundSettings{
        StudioBackgroundType::gradient, gradientSettings(GradientPreset::ocean), {}, {}, 1.0};
    settings->cameraSettings.shape = CameraShape::circle;
    // The cursor sweeps across the screen and back once a second: always moving, always blurred.
    for (int i = 0; i <= 600; ++i) {
        const double phase = (i % 60) / 60.0;
        settings->cursorPositions.push_back(
            {QUuid::createUuid(), i / 60.0, {0.2 + 0.6 * phase, 0.3 + 0.3 * phase}});
    }
    ZoomSegment::Parameters zoom;
    zoom.startTime = 2.0;
    zoom.endTime = 8.0;
    zoom.easeIn = 1.5;
    zoom.zoomLevel = 2.0;
    zoom.followCursor = true;
    settings->zoomSegments = {ZoomSegment(zoom)};
    return settings;
}

const QImage& sharedScreen() {
    static const QImage image = screenFrame();
    return image;
}

const QImage& sharedCamera() {
    static const QImage image = cameraFrame();
    return image;
}

// Times during the zoom's ease in (scale, camera size and cursor all change every frame), or
// one time held on the zoom's body with the cursor at rest (what the caches are for).
void composeFrames(benchmark::State& state, Size renderSize, bool moving, bool zoomed = true,
                   const QImage& screen = sharedScreen()) {
    auto settings = styledSettings();
    if (!zoomed)
        settings->zoomSegments.clear();
    if (!moving) {
        settings->cursorPositions = {{QUuid::createUuid(), 0.0, {0.5, 0.5}}};
        settings->cursorOverlaySettings.motionBlurEnabled = false;
    }
    RoundedCameraCompositor compositor(*settings);
    CompositionRequest request;
    request.renderSize = renderSize;
    request.sourceFrames = {screen, sharedCamera()};
    double t = moving ? 0.5 : 5.0;
    // An export composes thousands of frames: the shadows and masks its first frame builds are
    // measured on their own (BM_StyledFirstFrame), not spread over these.
    request.compositionTime = t - 1.0 / 60.0;
    benchmark::DoNotOptimize(compositor.processRequest(request));
    for (auto _ : state) {
        request.compositionTime = t;
        benchmark::DoNotOptimize(compositor.processRequest(request));
        if (moving) {
            t += 1.0 / 60.0;
            if (t > 2.0)
                t = 0.5;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_StyledMoving(benchmark::State& state) {
    composeFrames(state, {double(state.range(0)), double(state.range(1))}, true);
}

// The same with a screen picture that has alpha (a recording with a transparent background):
// everything under it must be painted.
void BM_StyledMovingTranslucent(benchmark::State& state) {
    static const QImage translucent =
        sharedScreen().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    composeFrames(state, {double(state.range(0)), double(state.range(1))}, true, true, translucent);
}

// A new compositor's first frame: background, screen shadow and masks built from nothing.
void BM_StyledFirstFrame(benchmark::State& state) {
    const auto settings = styledSettings();
    CompositionRequest request;
    request.renderSize = {1920.0, 1080.0};
    request.sourceFrames = {sharedScreen(), sharedCamera()};
    request.compositionTime = 0.5;
    for (auto _ : state) {
        RoundedCameraCompositor compositor(*settings);
        benchmark::DoNotOptimize(compositor.processRequest(request));
    }
}

// Held on the zoom's body, or with no zoom at all.
void BM_StyledStill(benchmark::State& state) {
    composeFrames(state, {double(state.range(0)), double(state.range(1))}, false);
}

void BM_StyledStillUnzoomed(benchmark::State& state) {
    composeFrames(state, {double(state.range(0)), double(state.range(1))}, false, false);
}

// A 1080p frame scaled into the padded area over a copy of a ready background: the least any
// styled frame must cost with QPainter.
void BM_Baseline_PaddedScaledCopy(benchmark::State& state) {
    QImage background(1920, 1080, QImage::Format_ARGB32_Premultiplied);
    background.fill(QColor(20, 60, 120));
    const QImage& screen = sharedScreen();
    for (auto _ : state) {
        QImage canvas(1920, 1080, QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&canvas);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.drawImage(0, 0, background);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(QRectF(213.3, 120.0, 1493.3, 840.0), screen);
        painter.end();
        benchmark::DoNotOptimize(canvas);
    }
}

void BM_Baseline_FrameCopy(benchmark::State& state) {
    const QImage& screen = sharedScreen();
    for (auto _ : state) {
        QImage copy = screen.copy();
        benchmark::DoNotOptimize(copy);
    }
}

// Qt's raster engine hands large blends to its own worker threads, so CPU time is counted for
// the whole process, not just the calling thread.
BENCHMARK(BM_Baseline_FrameCopy)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Baseline_PaddedScaledCopy)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StyledMoving)
    ->MeasureProcessCPUTime()
    ->Args({1920, 1080})
    ->Args({1080, 1920})
    ->Args({1920, 1920})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StyledMovingTranslucent)
    ->MeasureProcessCPUTime()
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StyledFirstFrame)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StyledStill)
    ->MeasureProcessCPUTime()
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StyledStillUnzoomed)
    ->MeasureProcessCPUTime()
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond);
// Two exports at once, one compositor each, on the machine's two cores.
BENCHMARK(BM_StyledMoving)
    ->Args({1920, 1080})
    ->Threads(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    BaselineRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    fmt::print("\nStyled frames, everything on (target under 4 ms at 1080p):\n");
    reporter.printRatio("  1920x1080 moving", "BM_StyledMoving/1920/1080/process_time",
                        "padded scaled copy", "BM_Baseline_PaddedScaledCopy/process_time");
    reporter.printRatio("  1920x1080 still ", "BM_StyledStill/1920/1080/process_time",
                        "padded scaled copy", "BM_Baseline_PaddedScaledCopy/process_time");
    reporter.printRatio("  1920x1080 still, no zoom",
                        "BM_StyledStillUnzoomed/1920/1080/process_time", "padded scaled copy",
                        "BM_Baseline_PaddedScaledCopy/process_time");
    reporter.printRatio("  still vs moving ", "BM_StyledStill/1920/1080/process_time", "moving",
                        "BM_StyledMoving/1920/1080/process_time");
    reporter.printRatio("  translucent screen", "BM_StyledMovingTranslucent/1920/1080/process_time",
                        "moving", "BM_StyledMoving/1920/1080/process_time");
    reporter.printRatio("  first frame     ", "BM_StyledFirstFrame/process_time", "moving",
                        "BM_StyledMoving/1920/1080/process_time");
    reporter.printRatio("  1080x1920 moving", "BM_StyledMoving/1080/1920/process_time",
                        "padded scaled copy", "BM_Baseline_PaddedScaledCopy/process_time");
    reporter.printRatio("  1920x1920 moving", "BM_StyledMoving/1920/1920/process_time",
                        "padded scaled copy", "BM_Baseline_PaddedScaledCopy/process_time");
    reporter.printRatio("  3840x2160 moving", "BM_StyledMoving/3840/2160/process_time",
                        "padded scaled copy", "BM_Baseline_PaddedScaledCopy/process_time");
    reporter.printRatio("  padded scaled copy", "BM_Baseline_PaddedScaledCopy/process_time",
                        "plain frame copy", "BM_Baseline_FrameCopy/process_time");
    benchmark::Shutdown();
    return 0;
}
