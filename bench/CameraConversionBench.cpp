// The camera's colour conversion: a 1280x720 YUYV frame (what the test camera and uncompressed
// webcams deliver) to BGRA, by libyuv and by libswscale, in the same run. The camera uses the
// faster; the ratio says by how much.

#include "BaselineRatioReporter.h"
#include "media/FFmpegHandles.h"

#include <libyuv.h>

#include <vector>

namespace {

constexpr int width = 1280, height = 720;

// A YUYV frame with varied content, so no path can shortcut flat colour.
std::vector<uint8_t> yuyvFrame() {
    std::vector<uint8_t> frame(size_t(width) * height * 2);
    uint32_t noise = 1;
    for (uint8_t& byte : frame) {
        noise = noise * 1664525u + 1013904223u;
        byte = uint8_t(noise >> 24);
    }
    return frame;
}

void BM_LibyuvYUY2ToARGB(benchmark::State& state) {
    const std::vector<uint8_t> source = yuyvFrame();
    std::vector<uint8_t> target(size_t(width) * height * 4);
    for (auto _ : state) {
        libyuv::YUY2ToARGB(source.data(), width * 2, target.data(), width * 4, width, height);
        benchmark::DoNotOptimize(target.data());
    }
}

void BM_SwscaleYUYVToBGRA(benchmark::State& state) {
    const std::vector<uint8_t> source = yuyvFrame();
    std::vector<uint8_t> target(size_t(width) * height * 4);
    SwsContextPtr scaler(sws_getContext(width, height, AV_PIX_FMT_YUYV422, width, height,
                                        AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
    const uint8_t* in[4] = {source.data(), nullptr, nullptr, nullptr};
    const int inStride[4] = {width * 2, 0, 0, 0};
    uint8_t* out[4] = {target.data(), nullptr, nullptr, nullptr};
    const int outStride[4] = {width * 4, 0, 0, 0};
    for (auto _ : state) {
        sws_scale(scaler.get(), in, inStride, 0, height, out, outStride);
        benchmark::DoNotOptimize(target.data());
    }
}

} // namespace

BENCHMARK(BM_LibyuvYUY2ToARGB)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime();
BENCHMARK(BM_SwscaleYUYVToBGRA)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    BaselineRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    fmt::print("\n720p YUYV to BGRA, per frame:\n");
    reporter.printRatio("  libyuv", "BM_LibyuvYUY2ToARGB/process_time", "libswscale",
                        "BM_SwscaleYUYVToBGRA/process_time");
    return 0;
}
