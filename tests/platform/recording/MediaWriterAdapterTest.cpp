#include "platform/recording/MediaWriterAdapter.h"

#include <gtest/gtest.h>

// Every field of the coordinator's writer settings reaches the media layer's, by value: colour
// names, the alpha codec by its raw value, the audio format case by case.
TEST(MediaWriterAdapterTest, TranslatesEverySetting) {
    WriterEngineConfiguration given;
    given.outputURL = QStringLiteral("/tmp/Recording at 2026.mov");
    given.outputFormat = OutputFormat::mp4;
    WriterEngineConfiguration::VideoSettings video;
    video.width = 1280;
    video.height = 720;
    video.frameRate = 30;
    video.codec = VideoEncoder::h264;
    video.quality = VideoQuality::medium;
    video.colorSpace = rec709ColorSpace();
    video.hasAlphaChannel = true;
    video.alphaCodec = QString::fromStdString(rawValue(AlphaVideoCodec::proRes4444));
    given.videoSettings = video;
    given.audioSettings = {44'100, 1, 96'000, WriterEngineConfiguration::AudioFormat::opus};
    given.separateAudioTracks = true;

    const WriterConfiguration result = MediaWriterAdapter::translate(given);
    EXPECT_EQ(result.outputURL, std::filesystem::path("/tmp/Recording at 2026.mov"));
    EXPECT_EQ(result.outputFormat, OutputFormat::mp4);
    ASSERT_TRUE(result.videoSettings.has_value());
    EXPECT_EQ(result.videoSettings->width, 1280);
    EXPECT_EQ(result.videoSettings->height, 720);
    EXPECT_EQ(result.videoSettings->frameRate, 30);
    EXPECT_EQ(result.videoSettings->codec, VideoEncoder::h264);
    EXPECT_EQ(result.videoSettings->quality, VideoQuality::medium);
    EXPECT_EQ(result.videoSettings->colorSpace,
              WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709());
    EXPECT_TRUE(result.videoSettings->hasAlphaChannel);
    EXPECT_EQ(result.videoSettings->alphaCodec, AlphaVideoCodec::proRes4444);
    EXPECT_EQ(result.audioSettings.sampleRate, 44'100);
    EXPECT_EQ(result.audioSettings.channelCount, 1);
    EXPECT_EQ(result.audioSettings.bitRate, 96'000);
    EXPECT_EQ(result.audioSettings.format, WriterConfiguration::AudioFormat::opus);
    EXPECT_TRUE(result.separateAudioTracks);

    // An audio-only file stays without video.
    given.videoSettings.reset();
    given.audioSettings.format = WriterEngineConfiguration::AudioFormat::flac;
    const WriterConfiguration audioOnly = MediaWriterAdapter::translate(given);
    EXPECT_FALSE(audioOnly.videoSettings.has_value());
    EXPECT_EQ(audioOnly.audioSettings.format, WriterConfiguration::AudioFormat::flac);
}
