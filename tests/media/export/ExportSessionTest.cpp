#include "media/export/ExportSession.h"

#include "core/support/SerialQueue.h"
#include "media/export/VideoCompositing.h"
#include "media/export/VideoTrackReader.h"

#include "../SyntheticMedia.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int width = 96;
constexpr int height = 64;

// A stand-in for the styled compositor: answers on a serial stage of its own with the screen
// frame as it is, optionally slowly, and fails from a given request on.
class PassThroughCompositing final : public VideoCompositing {
public:
    void startRequest(VideoCompositionRequest request) override {
        m_stage.async([this, request = std::move(request)] {
            {
                std::lock_guard lock(m_mutex);
                times.push_back(request.compositionTime);
            }
            std::this_thread::sleep_for(delay);
            const bool fail = failFrom >= 0 && m_answered++ >= failFrom;
            request.finish(fail ? VideoFrame() : request.sourceFrames.at(0));
        });
    }
    void cancelAllPendingVideoCompositionRequests() override {}

    std::chrono::milliseconds delay{0};
    int failFrom = -1;
    std::vector<MediaTime> times;

private:
    std::mutex m_mutex;
    int m_answered = 0;
    SerialQueue m_stage{"test.compositor"};
};

// Two seconds at 10 frames/s; frame k has the value 10 * k in every byte.
void writeSource(const std::filesystem::path& path) {
    ExportEncoding encoding;
    encoding.video.width = width;
    encoding.video.height = height;
    encoding.video.expectedSourceFrameRate = 10;
    encoding.tuning.allowHardware = false;
    encoding.tuning.constantRateFactor = 4;
    encoding.audio = WriterConfiguration::AudioSettings{};
    std::string error;
    auto writer = ExportWriter::create(path, encoding, error);
    ASSERT_TRUE(writer) << error;
    for (int k = 0; k < 20; ++k) {
        const MediaTime time = MediaTime::make(k, 10);
        VideoFrame frame = VideoFrame::allocate(width, height, time, MediaTime::make(1, 10));
        for (int y = 0; y < height; ++y) {
            auto* row = reinterpret_cast<uint32_t*>(frame.mutableBytes() +
                                                    size_t(y) * size_t(frame.bytesPerRow()));
            const uint32_t grey = uint32_t(10 * k);
            std::fill_n(row, width, 0xff000000u | grey << 16 | grey << 8 | grey);
        }
        ASSERT_TRUE(writer->appendVideo(frame, int64_t(k) * 9000));
        ASSERT_TRUE(writer->appendAudio(tone(4800, int64_t(k) * 4800, time), k / 10.0));
    }
    ASSERT_TRUE(writer->finish());
}

int greyOf(const VideoFrame& frame) {
    return frame.bytes()[size_t(height / 2) * size_t(frame.bytesPerRow()) + 4 * (width / 2)];
}

class ExportSessionTest : public ::testing::Test {
protected:
    void SetUp() override { writeSource(folder.file("source.mp4")); }

    std::unique_ptr<ExportSession> session(std::vector<MediaTimeRange> ranges,
                                           VideoCompositing& compositor) {
        ExportComposition composition;
        composition.screenURL = folder.file("source.mp4");
        composition.screenTimeRanges = std::move(ranges);
        auto made =
            std::make_unique<ExportSession>(composition, ExportSession::Preset::highestQuality);
        made->outputURL = folder.file("out.mp4");
        made->encoding.tuning.allowHardware = false;
        made->encoding.tuning.constantRateFactor = 4;
        made->encoding.audio = WriterConfiguration::AudioSettings{};
        made->videoComposition =
            ExportVideoComposition{width, height, MediaTime::make(1, 10), &compositor};
        return made;
    }

    ScratchFolder folder;
};

// Requests come in order at the output frame times, each with the source frame of its place on
// the joined time line; progress only rises and ends at 1.
TEST_F(ExportSessionTest, ComposesEveryOutputFrameFromItsSourceTime) {
    PassThroughCompositing compositor;
    auto export_ = session({{MediaTime::make(15, 10), MediaTime::make(3, 10)},
                            {MediaTime::make(2, 10), MediaTime::make(4, 10)}},
                           compositor);
    std::vector<double> progress;
    export_->exportAsynchronously({});
    while (!export_->waitForFinish(std::chrono::milliseconds(5)))
        progress.push_back(export_->progress());
    ASSERT_EQ(export_->status(), ExportSession::Status::completed) << export_->error().value_or("");
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_EQ(export_->progress(), 1.0);
    ASSERT_EQ(compositor.times.size(), 7u);
    for (size_t k = 0; k < compositor.times.size(); ++k)
        EXPECT_EQ(compositor.times[k], MediaTime::make(int64_t(k), 10));

    std::string error;
    auto reader = VideoTrackReader::open(folder.file("out.mp4"), error);
    ASSERT_TRUE(reader) << error;
    const std::vector<int> expected = {15, 16, 17, 2, 3, 4, 5};
    for (size_t k = 0; k < expected.size(); ++k)
        EXPECT_NEAR(greyOf(reader->frameAt(MediaTime::make(int64_t(k), 10))), 10 * expected[k], 3)
            << "output frame " << k;
}

// A cancel stops the export within a few frames and removes what was written.
TEST_F(ExportSessionTest, CancelStopsSoonAndRemovesTheFile) {
    PassThroughCompositing compositor;
    compositor.delay = std::chrono::milliseconds(30);
    auto export_ = session({{MediaTime::zero(), MediaTime::make(2, 1)}}, compositor);
    export_->exportAsynchronously({});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (export_->progress() < 0.2 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    export_->cancelExport();
    ASSERT_TRUE(export_->waitForFinish(std::chrono::seconds(10)));
    EXPECT_EQ(export_->status(), ExportSession::Status::cancelled);
    EXPECT_LT(compositor.times.size(), 14u);
    EXPECT_FALSE(std::filesystem::exists(folder.file("out.mp4")));
}

// A frame the compositor cannot make fails the export with a reason and leaves no file.
TEST_F(ExportSessionTest, CompositorFailureFailsTheExport) {
    PassThroughCompositing compositor;
    compositor.failFrom = 5;
    auto export_ = session({{MediaTime::zero(), MediaTime::make(2, 1)}}, compositor);
    export_->exportAsynchronously({});
    ASSERT_TRUE(export_->waitForFinish(std::chrono::seconds(30)));
    EXPECT_EQ(export_->status(), ExportSession::Status::failed);
    EXPECT_TRUE(export_->error());
    EXPECT_FALSE(std::filesystem::exists(folder.file("out.mp4")));
}

} // namespace
