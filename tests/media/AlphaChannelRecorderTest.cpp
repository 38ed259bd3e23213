#include "media/AlphaChannelRecorder.h"

#include "media/AlphaRecordingError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {
std::optional<AlphaRecordingError::Kind> validationError(int width, int height,
                                                         AlphaVideoCodec codec) {
    try {
        AlphaChannelRecorder::validateResolution(width, height, codec);
        return std::nullopt;
    } catch (const AlphaRecordingError& error) {
        return error.kind();
    }
}
} // namespace

TEST(AlphaChannelRecorder, ResolutionRulesInOrder) {
    using Kind = AlphaRecordingError::Kind;
    EXPECT_FALSE(validationError(8192, 8192, AlphaVideoCodec::proRes4444));
    EXPECT_EQ(validationError(8193, 100, AlphaVideoCodec::proRes4444), Kind::resolutionTooLarge);
    // Size zero is reported before anything else, even with an odd other side.
    EXPECT_EQ(validationError(0, 101, AlphaVideoCodec::hevcWithAlpha), Kind::invalidResolution);
    // Only HEVC needs even sides.
    EXPECT_EQ(validationError(1921, 1080, AlphaVideoCodec::hevcWithAlpha), Kind::invalidAlignment);
    EXPECT_FALSE(validationError(1921, 1080, AlphaVideoCodec::proRes4444));
}

TEST(AlphaChannelRecorder, CodecChoiceFollowsWhatFFmpegOffers) {
    auto supported = AlphaChannelRecorder::supportedAlphaCodecs();
    EXPECT_NE(std::find(supported.begin(), supported.end(), AlphaVideoCodec::proRes4444),
              supported.end());
    EXPECT_NE(std::find(supported.begin(), supported.end(), AlphaVideoCodec::proRes4444XQ),
              supported.end());
    bool hevc = AlphaChannelRecorder::isHEVCWithAlphaSupported();
    EXPECT_EQ(std::find(supported.begin(), supported.end(), AlphaVideoCodec::hevcWithAlpha) !=
                  supported.end(),
              hevc);
    EXPECT_EQ(AlphaChannelRecorder::recommendedAlphaCodec(),
              hevc ? AlphaVideoCodec::hevcWithAlpha : AlphaVideoCodec::proRes4444);
    // The detection is about keeping alpha, not about taking RGBA in: libx265 and NVENC take
    // pictures without keeping transparency and must never count.
    auto name = AlphaChannelRecorder::hevcWithAlphaEncoderName();
    EXPECT_NE(name, std::optional<std::string>("hevc_nvenc"));
    EXPECT_EQ(name.has_value(), hevc);
}

TEST(AlphaChannelRecorder, SettingsPerCodec) {
    // HEVC with alpha: Int(1920 × 1080 × 0.15 × 0.7) = 217,728, with no frame rate in it.
    VideoCodecSettings hevc =
        AlphaChannelRecorder::videoSettings(1920, 1080, AlphaVideoCodec::hevcWithAlpha, 0.7);
    EXPECT_EQ(hevc.codec, VideoCodecSettings::Codec::hevcWithAlpha);
    EXPECT_EQ(hevc.averageBitRate, 217728);
    VideoCodecSettings proRes =
        AlphaChannelRecorder::videoSettings(640, 480, AlphaVideoCodec::proRes4444XQ, 1.0);
    EXPECT_EQ(proRes.codec, VideoCodecSettings::Codec::proRes4444XQ);
    EXPECT_FALSE(proRes.averageBitRate);
    EXPECT_EQ(proRes.width, 640);
    EXPECT_TRUE(proRes.hasAlpha());
}

TEST(AlphaVideoCodec, NamesAndRawValuesRoundTrip) {
    for (AlphaVideoCodec codec : allAlphaVideoCodecs)
        EXPECT_EQ(alphaVideoCodecFromRawValue(rawValue(codec)), codec);
    EXPECT_FALSE(alphaVideoCodecFromRawValue("prores"));
}
