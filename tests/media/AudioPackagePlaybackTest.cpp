#include "media/AudioPackagePlayback.h"

#include "media/AudioPackageFixture.h"
#include "media/SyntheticMedia.h"

#include <gtest/gtest.h>

namespace {

constexpr int rate = 48000;

// `seconds` of playback, first channel only.
std::vector<float> play(AudioPackagePlayback& playback, double seconds) {
    const int frames = int(seconds * rate);
    std::vector<float> interleaved(size_t(frames) * 2);
    std::vector<float> left;
    // In the audio output's block size, as a sink pulls it.
    for (int done = 0; done < frames;) {
        const int count = playback.read(interleaved.data(), std::min(1024, frames - done));
        if (count == 0)
            break;
        for (int i = 0; i < count; ++i)
            left.push_back(interleaved[size_t(2 * i)]);
        done += count;
    }
    return left;
}

double level(const std::vector<float>& samples, double frequency) {
    return toneAmplitude(samples, frequency, rate, 0, samples.size());
}

class AudioPackagePlaybackTest : public ::testing::Test {
protected:
    void SetUp() override {
        package = folder.file("Talk.vxa");
        std::filesystem::create_directory(package);
        // The system audio changes pitch at 2.5 s, so a seek can be heard landing.
        writeSource(package / "sys.m4a", 4.0, [](double t) {
            return 0.5f * float(std::sin(2.0 * M_PI * (t < 2.5 ? 440.0 : 660.0) * t));
        });
        writeTone(package / "mic.m4a", 1000, 0.5f, 2.0);
        writeInfo(package, 0.5f, 1.0f);
    }

    ScratchFolder folder;
    std::filesystem::path package;
};

// Both sources play together at the package's volumes; a changed volume is heard from the next
// block on, shows in the level meter and is what the package says when opened again.
TEST_F(AudioPackagePlaybackTest, PlaysBothSourcesAtTheirVolumesAndSavesChanges) {
    AudioPackagePlayback playback(package);
    EXPECT_NEAR(playback.duration(), 4.0, 0.05);
    const auto first = play(playback, 1.0);
    EXPECT_NEAR(playback.position(), 1.0, 1e-9);
    EXPECT_NEAR(decibels(level(first, 440) / 0.25), 0, 0.5);
    EXPECT_NEAR(decibels(level(first, 1000) / 0.5), 0, 0.5);

    EXPECT_TRUE(playback.setMicVolume(0.25f));
    const auto quieter = play(playback, 0.5);
    EXPECT_NEAR(decibels(level(quieter, 1000) / 0.125), 0, 0.5);
    EXPECT_NEAR(decibels(level(quieter, 440) / 0.25), 0, 0.5);
    EXPECT_NEAR(playback.levels().microphone, 0.125, 0.02);

    const AudioPackagePlayback reopened(package);
    EXPECT_FLOAT_EQ(reopened.micVolume(), 0.25f);
    EXPECT_FLOAT_EQ(reopened.sysVolume(), 0.5f);
}

// Seeking moves the position and the sound together, forward past the microphone's end and
// back; playing stops at the longer source's end.
TEST_F(AudioPackagePlaybackTest, SeeksBothSourcesToTheSamePlace) {
    AudioPackagePlayback playback(package);
    playback.seek(2.6);
    EXPECT_NEAR(playback.position(), 2.6, 1e-9);
    const auto late = play(playback, 0.5);
    EXPECT_NEAR(decibels(level(late, 660) / 0.25), 0, 0.5);
    EXPECT_LT(level(late, 440), 0.01);
    EXPECT_LT(level(late, 1000), 0.01); // the microphone ended at 2 s

    playback.seek(0.5);
    const auto early = play(playback, 0.5);
    EXPECT_NEAR(decibels(level(early, 440) / 0.25), 0, 0.5);
    EXPECT_NEAR(decibels(level(early, 1000) / 0.5), 0, 0.5);

    playback.seek(3.5);
    const auto end = play(playback, 2.0);
    EXPECT_NEAR(double(end.size()) / rate, 0.5, 0.03);
    EXPECT_NEAR(playback.position(), 4.0, 0.03);
}

} // namespace
