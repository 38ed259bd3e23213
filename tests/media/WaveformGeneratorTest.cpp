#include "media/WaveformGenerator.h"

#include "media/export/ExportWriter.h"

#include "SyntheticMedia.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

// A one-second-per-value movie: 2 s of silence, then `loud` seconds of tone.
bool writeMovie(const std::filesystem::path& path, double silent, double loud, bool withAudio) {
    ExportEncoding encoding;
    encoding.video.width = 64;
    encoding.video.height = 64;
    encoding.video.expectedSourceFrameRate = 10;
    encoding.tuning.allowHardware = false;
    if (withAudio)
        encoding.audio = WriterConfiguration::AudioSettings{};
    std::string error;
    auto writer = ExportWriter::create(path, encoding, error);
    if (!writer)
        return false;
    const int frames = int((silent + loud) * 10);
    for (int k = 0; k < frames; ++k) {
        const MediaTime time = MediaTime::make(k, 10);
        if (!writer->appendVideo(movingPicture(64, 64, k, time, MediaTime::make(1, 10)),
                                 int64_t(k) * 9000))
            return false;
        if (withAudio) {
            AudioBuffer block = tone(4800, int64_t(k) * 4800, time);
            if (k < silent * 10) {
                for (int c = 0; c < 2; ++c)
                    std::fill_n(block.mutableChannelData(c), 4800, 0.0f);
            }
            if (!writer->appendAudio(block, k / 10.0))
                return false;
        }
    }
    return writer->finish();
}

// 50 values a second, within 200 and 2000.
TEST(WaveformGeneratorTest, CountFollowsTheLength) {
    EXPECT_EQ(WaveformGenerator::targetCount(1), 200);
    EXPECT_EQ(WaveformGenerator::targetCount(10), 500);
    EXPECT_EQ(WaveformGenerator::targetCount(100), 2000);
    EXPECT_EQ(WaveformGenerator::targetCount(1000), 2000);
}

// Mean absolute amplitude per bucket, the loudest at 1; samples past the expected length pour
// into the last bucket instead of being lost.
TEST(WaveformGeneratorTest, ReductionAveragesAndNormalises) {
    WaveformGenerator::Reduction reduction(200, 1.0); // 220 samples per bucket
    std::vector<short> samples(44100, 1000);
    std::fill(samples.begin(), samples.begin() + 220, short(-32768));
    reduction.add(samples.data(), int(samples.size()));
    std::vector<short> surplus(2200, 32767);
    reduction.add(surplus.data(), int(surplus.size()));
    const std::vector<float> values = reduction.values();
    ASSERT_EQ(values.size(), 200u);
    EXPECT_FLOAT_EQ(values[0], 1.0f);
    EXPECT_NEAR(values[1], 1000.0 / 32768.0, 1e-4);
    // The last bucket holds its own 320 quiet samples and the loud surplus.
    EXPECT_GT(values[199], values[1] * 5);
}

// The timeline shows where the sound is: quiet where the movie is silent, full where it plays;
// a movie without sound gives zeros.
TEST(WaveformGeneratorTest, FollowsTheSoundOfAMovie) {
    ScratchFolder folder;
    ASSERT_TRUE(writeMovie(folder.file("tone.mp4"), 2, 2, true));
    const std::vector<float> values =
        WaveformGenerator::generateWaveform(folder.file("tone.mp4"), 4);
    ASSERT_EQ(values.size(), 200u);
    EXPECT_FLOAT_EQ(*std::max_element(values.begin(), values.end()), 1.0f);
    EXPECT_LT(*std::max_element(values.begin() + 5, values.begin() + 90), 0.05f);
    EXPECT_GT(*std::min_element(values.begin() + 110, values.begin() + 195), 0.5f);

    ASSERT_TRUE(writeMovie(folder.file("mute.mp4"), 0, 2, false));
    const std::vector<float> mute = WaveformGenerator::generateWaveform(folder.file("mute.mp4"), 2);
    EXPECT_EQ(mute, std::vector<float>(200, 0.0f));
}

} // namespace
