// The live zoom renders every pump tick of a window recording with click-to-zoom; the smart
// decision runs once per left click. Figures: a zoomed 1080p frame (crop and bilinear scale
// back to full size into a pool frame) and an unzoomed one (a copy into a pool frame), against
// a plain 1080p copy and against the same crop and scale done with QImage; one click decision
// over 8 s of cursor samples at 30 Hz, against one pass over the samples.

#include "BaselineRatioReporter.h"

#include "core/recording/SmartClickZoom.h"
#include "media/VideoFrame.h"
#include "render/RasterZoomRenderer.h"

#include <QImage>

#include <cmath>
#include <cstring>

namespace {

constexpr int width = 1920;
constexpr int height = 1080;

VideoFrameHandle sourceFrame() {
    auto frame = std::make_shared<VideoFrame>(
        VideoFrame::allocate(width, height, MediaTime::zero(), MediaTime::make(1, 60)));
    for (int y = 0; y < height; ++y) {
        uint8_t* row = frame->mutableBytes() + y * frame->bytesPerRow();
        for (int x = 0; x < width * 4; ++x)
            row[x] = uint8_t((x * 7 + y * 3) & 0xff);
    }
    return frame;
}

void BM_Baseline_Copy1080p(benchmark::State& state) {
    const VideoFrameHandle source = sourceFrame();
    VideoFramePool pool(width, height);
    for (auto _ : state) {
        VideoFrame out = pool.makeFrame(MediaTime::zero(), MediaTime::zero());
        for (int y = 0; y < height; ++y)
            std::memcpy(out.mutableBytes() + y * out.bytesPerRow(),
                        source->bytes() + y * source->bytesPerRow(), size_t(width) * 4);
        benchmark::DoNotOptimize(out.bytes());
    }
}

void BM_Baseline_QImageCropScale(benchmark::State& state) {
    const VideoFrameHandle source = sourceFrame();
    const QImage image(source->bytes(), width, height, source->bytesPerRow(),
                       QImage::Format_ARGB32_Premultiplied);
    const auto crop = RasterZoomRenderer::cropFor(width, height, 2.25, Point{0.4, 0.4});
    for (auto _ : state) {
        QImage scaled =
            image.copy(QRect(int(crop.x), int(crop.y), int(crop.width), int(crop.height)))
                .scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        benchmark::DoNotOptimize(scaled.constBits());
    }
}

void renderFrames(benchmark::State& state, bool zoomed) {
    const VideoFrameHandle source = sourceFrame();
    RasterZoomRenderer renderer;
    renderer.setCaptureFrame(Size{width, height}, Point{});
    if (zoomed) {
        renderer.triggerClickZoom(Point{0.4, 0.4});
        renderer.setZoomEase(0.05);
    }
    double t = 1000.0;
    for (int i = 0; i < 120; ++i)
        renderer.updateAnimation(MediaTime::fromSeconds(t += 1.0 / 60, 600000));
    for (auto _ : state) {
        renderer.updateAnimation(MediaTime::fromSeconds(t += 1.0 / 60, 600000));
        VideoFrameHandle out = renderer.processedPixelBuffer(source, false);
        benchmark::DoNotOptimize(out.get());
    }
}

void BM_ZoomedFrame(benchmark::State& state) {
    renderFrames(state, true);
}

void BM_UnzoomedFrame(benchmark::State& state) {
    renderFrames(state, false);
}

SmartClickZoom::Targets noTargets() {
    return {[] { return true; }, [] { return static_cast<MetadataRecorderEngine*>(nullptr); },
            [] { return static_cast<ZoomRenderer*>(nullptr); }};
}

// 8 s of a wandering cursor at 30 Hz: the history the decision looks through.
void fillHistory(SmartClickZoom& zoom) {
    for (int i = 0; i <= 240; ++i) {
        const double t = i / 30.0;
        zoom.recordSmartCursorSample(Point{0.5 + 0.3 * std::sin(t), 0.5 + 0.3 * std::cos(t)}, t);
    }
}

void BM_Baseline_ScanSamples(benchmark::State& state) {
    SmartClickZoom zoom(noTargets());
    fillHistory(zoom);
    for (auto _ : state) {
        double sum = 0;
        for (const auto& sample : zoom.samples())
            sum += sample.positionTL.x;
        benchmark::DoNotOptimize(sum);
    }
}

void BM_ClickDecision(benchmark::State& state) {
    SmartClickZoom zoom(noTargets());
    fillHistory(zoom);
    for (auto _ : state)
        benchmark::DoNotOptimize(zoom.smartClickZoomDecision(7.5, Point{0.5, 0.5}, 0.5));
}

BENCHMARK(BM_Baseline_Copy1080p)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_Baseline_QImageCropScale)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_ZoomedFrame)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_UnzoomedFrame)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_Baseline_ScanSamples)->MeasureProcessCPUTime();
BENCHMARK(BM_ClickDecision)->MeasureProcessCPUTime();

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    BaselineRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    fmt::print("\n1920x1080 BGRA:\n");
    reporter.printRatio("  zoomed frame at 2.25 (target under 3 ms)", "BM_ZoomedFrame/process_time",
                        "a plain copy", "BM_Baseline_Copy1080p/process_time");
    reporter.printRatio("  zoomed frame at 2.25", "BM_ZoomedFrame/process_time",
                        "QImage crop and smooth scale", "BM_Baseline_QImageCropScale/process_time");
    reporter.printRatio("  unzoomed frame", "BM_UnzoomedFrame/process_time", "a plain copy",
                        "BM_Baseline_Copy1080p/process_time");
    fmt::print("8 s of samples at 30 Hz:\n");
    reporter.printRatio("  click decision", "BM_ClickDecision/process_time",
                        "one pass over the samples", "BM_Baseline_ScanSamples/process_time");
    benchmark::Shutdown();
    return 0;
}
