// The camera's colour conversion: a 1280x720 YUYV frame (what the test camera and uncompressed
// webcams deliver) to BGRA, by libyuv and by libswscale, in the same run. The camera uses the
// faster; the ratio says by how much. Then the camera's latency: from the moment a frame is
// read from the device (its time stamp) to its hand-over to the layer's writer, for the test
// camera over a few seconds, against the 1/30 s frame interval.

#include "BaselineRatioReporter.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "media/FFmpegHandles.h"
#include "platform/v4l2/V4L2CameraCaptureEngine.h"

#include <QCoro/QCoroTask>

#include <libyuv.h>

#include <algorithm>
#include <mutex>
#include <thread>
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

// Notes how long after its time stamp each frame reaches the writer.
class LatencyWriter final : public MediaWriterEngine {
public:
    void configure(const WriterConfiguration&) override {}
    void startWriting() override {}
    void startSession(MediaTime at) override { m_start = at; }
    bool isWriting() const override { return true; }
    bool hasFailed() const override { return false; }
    bool appendVideoBuffer(const VideoFrame& frame) override {
        const double late = (MediaTime::hostTimeNow() - frame.presentationTime).seconds();
        std::lock_guard lock(mutex);
        if (frame.presentationTime != m_start) // the opening frame is re-timed; not a delivery
            latencies.push_back(late);
        return true;
    }
    bool appendVideoPixelBuffer(const VideoFrame&, MediaTime) override { return false; }
    bool appendAudioBuffer(const AudioBuffer&, int, bool) override { return false; }
    void addTimeOffset(MediaTime) override {}
    std::optional<MediaTime> sessionStartTimeValue() const override { return m_start; }
    MediaTime currentTimeOffset() const override { return MediaTime::zero(); }
    std::optional<MediaTime> lastPresentationTime() const override { return std::nullopt; }
    QCoro::Task<QString> finishWriting() override { co_return QString(); }
    void cancel() override {}

    std::mutex mutex;
    std::vector<double> latencies;

private:
    std::optional<MediaTime> m_start;
};

void reportCameraLatency() {
    setenv("TAVELQUISTON_TEST_CAMERA", "1", 1);
    LatencyWriter writer;
    V4L2CameraCaptureEngine engine;
    engine.setupCamera(AVCaptureDevice{QString(), QStringLiteral("Test Camera")});
    engine.configureSeparateWriter(&writer);
    engine.startCapture();
    engine.startWriterSessionIfNeeded(MediaTime::hostTimeNow());
    constexpr double seconds = 4;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    engine.cleanup();
    std::lock_guard lock(writer.mutex);
    std::vector<double> late = writer.latencies;
    if (late.empty())
        return;
    std::sort(late.begin(), late.end());
    const double interval = 1.0 / 30;
    const double median = late[late.size() / 2], worst = late.back();
    fmt::print("\n720p30 test camera, delivery to writer, {} frames in {} s ({} expected):\n",
               late.size(), seconds, int(seconds * 30) - 1);
    fmt::print("  median {:.2f} ms = {:.3f} x frame interval ({:.2f} ms); worst {:.2f} ms = {:.3f} "
               "x\n",
               median * 1e3, median / interval, interval * 1e3, worst * 1e3, worst / interval);
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
    reportCameraLatency();
    return 0;
}
