#include "app/player/AudioPackagePlayerWindow.h"

#include "media/AudioPackageFixture.h"
#include "media/AudioPackagePlayback.h"
#include "media/DecodedAudio.h"
#include "media/SyntheticMedia.h"
#include "support/EventLoop.h"

#include <QSlider>

#include <gtest/gtest.h>

namespace {

// A package of two tones, the microphone at half volume.
std::filesystem::path makePackage(const ScratchFolder& folder) {
    const auto package = folder.file("Talk.vxa");
    std::filesystem::create_directory(package);
    writeTone(package / "sys.m4a", 440, 0.5f, 2.0);
    writeTone(package / "mic.m4a", 1000, 0.5f, 1.0);
    writeInfo(package, 1.0f, 0.5f);
    return package;
}

} // namespace

// The window starts at the package's volumes; moving a slider changes what plays and what the
// package says on its next opening; the position slider seeks; "Export Mix" makes the file at
// the volumes shown.
TEST(AudioPackagePlayerWindowTest, SlidersDriveThePlaybackAndExportUsesThem) {
    ScratchFolder folder;
    const auto package = makePackage(folder);
    auto playback = std::make_shared<AudioPackagePlayback>(package);
    AudioPackagePlayerWindow window(playback);
    auto* sys = window.findChild<QSlider*>(QStringLiteral("sysVolume"));
    auto* mic = window.findChild<QSlider*>(QStringLiteral("micVolume"));
    auto* position = window.findChild<QSlider*>(QStringLiteral("position"));
    ASSERT_TRUE(sys && mic && position);
    EXPECT_EQ(sys->value(), 100);
    EXPECT_EQ(mic->value(), 50);

    sys->setValue(25);
    EXPECT_FLOAT_EQ(playback->sysVolume(), 0.25f);
    EXPECT_FLOAT_EQ(AudioPackagePlayback(package).sysVolume(), 0.25f);

    position->setValue(1500);
    EXPECT_NEAR(playback->position(), 1.5, 1e-9);
    std::vector<float> block(2 * 4800);
    ASSERT_EQ(playback->read(block.data(), 4800), 4800);
    std::vector<float> left;
    for (size_t i = 0; i < block.size(); i += 2)
        left.push_back(block[i]);
    // Past the microphone's end, the system audio at the slider's quarter volume.
    EXPECT_NEAR(decibels(toneAmplitude(left, 440, 48000, 0, left.size()) / 0.125), 0, 0.5);

    std::optional<std::pair<QString, QString>> finished;
    QObject::connect(
        &window, &AudioPackagePlayerWindow::exportFinished,
        [&](const QString& path, const QString& error) { finished.emplace(path, error); });
    window.exportMix();
    ASSERT_TRUE(waitUntil([&] { return finished.has_value(); }, std::chrono::seconds(30)));
    const QString path = finished->first;
    ASSERT_FALSE(path.isEmpty()) << finished->second.toStdString();
    const auto mixed = decodeAudio(path.toStdString());
    ASSERT_TRUE(mixed);
    EXPECT_NEAR(
        decibels(toneAmplitude(mixed->channels[0], 440, mixed->sampleRate, 12000, 36000) / 0.125),
        0, 0.5);
}
