#include "media/AudioPackageMixer.h"

#include "media/AudioFileEncoder.h"
#include "media/AudioPackageFixture.h"
#include "media/DecodedAudio.h"
#include "media/SyntheticMedia.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

// The amplitude of one frequency in [from, to) seconds of the first channel.
double amplitudeAt(const DecodedAudio& audio, double frequency, double from, double to) {
    return toneAmplitude(audio.channels.at(0), frequency, audio.sampleRate,
                         size_t(from * audio.sampleRate), size_t(to * audio.sampleRate));
}

class AudioPackageMixerTest : public ::testing::Test {
protected:
    void SetUp() override {
        package = folder.file("Audio Recording 1-2-26, 10.00.00.vxa");
        std::filesystem::create_directory(package);
    }
    DecodedAudio decode(const std::filesystem::path& path) {
        auto decoded = decodeAudio(path);
        EXPECT_TRUE(decoded.has_value()) << path;
        return decoded ? *decoded : DecodedAudio{};
    }

    ScratchFolder folder;
    std::filesystem::path package;
};

// Each source at its own volume, summed; the mix as long as the longer source, which goes on
// alone after the shorter one ends.
TEST_F(AudioPackageMixerTest, MixesBothTonesAtTheirVolumesForTheLongerSourcesLength) {
    writeTone(package / "sys.m4a", 440, 0.5f, 3.0);
    writeTone(package / "mic.m4a", 1000, 0.5f, 2.0);
    writeInfo(package, 0.5f, 0.8f);

    const AudioPackageMixer mixer(package);
    const AudioMixResult result = mixer.mix({});
    EXPECT_EQ(result.output, folder.file("Audio Recording 1-2-26, 10.00.00.m4a"));
    EXPECT_NEAR(result.seconds, 3.0, 0.03);

    const DecodedAudio mixed = decode(result.output);
    EXPECT_NEAR(mixed.seconds(), 3.0, 0.05);
    EXPECT_NEAR(decibels(amplitudeAt(mixed, 440, 0.5, 1.5) / 0.25), 0, 0.5);
    EXPECT_NEAR(decibels(amplitudeAt(mixed, 1000, 0.5, 1.5) / 0.4), 0, 0.5);
    EXPECT_NEAR(decibels(amplitudeAt(mixed, 440, 2.2, 2.9) / 0.25), 0, 0.5);
    EXPECT_LT(amplitudeAt(mixed, 1000, 2.2, 2.9), 0.4 * 0.01); // the microphone has ended

    // Volumes given for the mix replace the package's.
    AudioMixOptions options;
    options.sysVolume = 1.0f;
    options.micVolume = 0.0f;
    options.output = folder.file("louder.m4a");
    const DecodedAudio louder = decode(mixer.mix(options).output);
    EXPECT_NEAR(decibels(amplitudeAt(louder, 440, 0.5, 1.5) / 0.5), 0, 0.5);
    EXPECT_LT(amplitudeAt(louder, 1000, 0.5, 1.5), 0.005);
}

TEST_F(AudioPackageMixerTest, PackageWithOnlySystemAudioMixesThatAlone) {
    writeTone(package / "sys.m4a", 440, 0.5f, 1.5);
    writeInfo(package, 0.7f, 1.0f);

    const AudioPackageMixer mixer(package);
    EXPECT_FALSE(mixer.microphonePath());
    const DecodedAudio mixed = decode(mixer.mix({}).output);
    EXPECT_NEAR(mixed.seconds(), 1.5, 0.05);
    EXPECT_NEAR(decibels(amplitudeAt(mixed, 440, 0.25, 1.25) / 0.35), 0, 0.5);
}

// Normalising reaches the target loudness as measured on the decoded file, whatever the
// volumes were, and an MP3 is made when asked and an encoder exists.
TEST_F(AudioPackageMixerTest, NormalizesToTargetLoudnessAndWritesMp3WhenAsked) {
    writeTone(package / "mic.m4a", 1000, 0.5f, 4.0);
    writeInfo(package, 1.0f, 0.05f); // a quiet voice

    AudioMixOptions options;
    options.normalize = true;
    options.mp3 = true;
    const AudioMixResult result = AudioPackageMixer(package).mix(options);
    const bool hasMp3 = AudioFileEncoder::isAvailable(AudioFileEncoder::Codec::mp3);
    EXPECT_EQ(result.format, hasMp3 ? "mp3" : "m4a");
    EXPECT_EQ(result.output.extension(), hasMp3 ? ".mp3" : ".m4a");
    EXPECT_EQ(result.note.has_value(), !hasMp3);
    EXPECT_GT(result.gain, 1.0);

    const DecodedAudio mixed = decode(result.output);
    ebur128_state* state = ebur128_init(2, unsigned(mixed.sampleRate), EBUR128_MODE_I);
    ASSERT_NE(state, nullptr);
    for (size_t i = 0; i < mixed.frames(); ++i) {
        const float frame[] = {mixed.channels[0][i], mixed.channels[1][i]};
        ebur128_add_frames_float(state, frame, 1);
    }
    double loudness = 0;
    ebur128_loudness_global(state, &loudness);
    ebur128_destroy(&state);
    EXPECT_NEAR(loudness, AudioPackageMixer::targetLoudness, 0.5);
}

// A package the mixer cannot read is one error that names the file, and no output is made.
TEST_F(AudioPackageMixerTest, DamagedOrMissingPackageIsOneErrorNamingTheFile) {
    writeTone(package / "sys.m4a", 440, 0.5f, 0.5);
    std::ofstream(package / "info.json") << "{ \"format\": \"m4a\", \"sysVol\": ";
    try {
        AudioPackageMixer{package};
        FAIL() << "a damaged info.json was accepted";
    } catch (const AudioPackageError& error) {
        EXPECT_NE(std::string(error.what()).find((package / "info.json").string()),
                  std::string::npos)
            << error.what();
    }
    EXPECT_THROW(AudioPackageMixer{folder.file("missing.vxa")}, AudioPackageError);

    writeInfo(package, 1, 1);
    std::filesystem::remove(package / "sys.m4a");
    EXPECT_THROW(AudioPackageMixer{package}, AudioPackageError);

    std::ofstream(package / "mic.m4a") << "not audio";
    EXPECT_THROW(AudioPackageMixer(package).mix({}), AudioPackageError);
    EXPECT_FALSE(std::filesystem::exists(folder.file("Audio Recording 1-2-26, 10.00.00.m4a")));
}

} // namespace
