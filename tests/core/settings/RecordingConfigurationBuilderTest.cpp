#include "core/settings/RecordingConfigurationBuilder.h"
#include "core/settings/UserDefaults.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace {
class RecordingConfigurationBuilderTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    UserDefaults defaults{dir.filePath("settings.ini")};
    RecordingConfigurationBuilder builder{defaults};
    RecordingMode mode = RecordingMode::screen(SCDisplay{1, Rect{0, 0, 1920, 1080}, 1.0});

    RecordingConfiguration build(RecordingConfigurationBuilder::Selector selector =
                                     RecordingConfigurationBuilder::Selector::modeSelection) {
        testing::internal::CaptureStdout();
        auto config = builder.build(mode, selector, 15);
        testing::internal::GetCapturedStdout();
        return config;
    }
};
} // namespace

// Unknown stored values fall to a fixed case, which is not always the default one.
TEST_F(RecordingConfigurationBuilderTest, mappingsFallToStatedCases) {
    defaults.set("resolution", 7);
    defaults.set("videoQuality", 0.71);
    defaults.set("backgroundColor", "blue"); // a real case, but not reachable here
    defaults.set("outputFormat", "mkv");
    defaults.set("videoEncoder", "h266");
    const auto config = build();
    EXPECT_EQ(config.resolution, ResolutionMode::low);
    EXPECT_EQ(config.videoQuality, VideoQuality::low);
    EXPECT_EQ(config.backgroundColor, BackgroundType::wallpaper);
    EXPECT_EQ(config.outputFormat, OutputFormat::mp4);
    EXPECT_EQ(config.encoder, VideoEncoder::h264);

    defaults.set("resolution", 2);
    defaults.set("videoQuality", 0.7);
    defaults.set("backgroundColor", "gray");
    EXPECT_EQ(build().resolution, ResolutionMode::high);
    EXPECT_EQ(build().videoQuality, VideoQuality::medium);
    EXPECT_EQ(build().backgroundColor, BackgroundType::gray);
}

// The settings pane's "encoder" key must not reach a recording: only "videoEncoder" does.
TEST_F(RecordingConfigurationBuilderTest, encoderComesFromVideoEncoderKeyOnly) {
    defaults.set("encoder", "h264");
    EXPECT_EQ(build().encoder, VideoEncoder::h265);
    defaults.set("videoEncoder", "h264");
    EXPECT_EQ(build().encoder, VideoEncoder::h264);
}

// Devices are kept only for sources that are on; separate tracks are always off here.
TEST_F(RecordingConfigurationBuilderTest, devicesOnlyWhenRecordedAndNoSeparateTracks) {
    defaults.set("microphoneDevice", "usb-mic");
    defaults.set("cameraDevice", "cam0");
    defaults.set("separateAudioTracks", true);
    auto config = build();
    EXPECT_EQ(config.microphoneDevice, std::nullopt);
    EXPECT_EQ(config.cameraDevice, std::nullopt);
    EXPECT_FALSE(config.separateAudioTracks);

    defaults.set("recordMicrophone", true);
    defaults.set("recordCamera", true);
    defaults.remove("cameraDevice");
    config = build();
    EXPECT_EQ(config.microphoneDevice, QString("usb-mic"));
    EXPECT_EQ(config.cameraDevice, QString("default"));
}

// The screen selector ignores highlight, countdown, auto-stop and sleep settings.
TEST_F(RecordingConfigurationBuilderTest, screenSelectorDiffers) {
    defaults.set("highlightCursor", true);
    defaults.set("countdown", 3);
    defaults.set("autoStopMinutes", 10);
    defaults.set("preventSleep", false);
    const auto window = build(RecordingConfigurationBuilder::Selector::window);
    EXPECT_TRUE(window.highlightCursor);
    EXPECT_EQ(window.countdown, 3);
    EXPECT_EQ(window.autoStopMinutes, 10);
    EXPECT_FALSE(window.preventSleep);

    const auto screen = build(RecordingConfigurationBuilder::Selector::screen);
    EXPECT_FALSE(screen.highlightCursor);
    EXPECT_EQ(screen.countdown, 0);
    EXPECT_EQ(screen.autoStopMinutes, 15); // the popover's own choice
    EXPECT_TRUE(screen.preventSleep);
}

// Enabling click-to-zoom alone gives zeros for the unwritten numbers: there is no fallback here.
TEST_F(RecordingConfigurationBuilderTest, clickToZoomWithoutNumbersGivesZeros) {
    defaults.set("enableClickToZoom", true);
    const auto config = build();
    ASSERT_TRUE(config.studioConfig.has_value());
    EXPECT_EQ(config.studioConfig->zoomLevel, 0.0);
    EXPECT_EQ(config.studioConfig->zoomDuration, 0.0);
    EXPECT_EQ(config.studioConfig->clickThreshold, 0.0);
}

// Layers alone keep the default zoom numbers.
TEST_F(RecordingConfigurationBuilderTest, studioWithoutClickToZoomKeepsDefaults) {
    defaults.set("enableSeparateLayers", true);
    defaults.set("zoomLevel", 2.5);
    const auto config = build();
    ASSERT_TRUE(config.studioConfig.has_value());
    EXPECT_EQ(config.studioConfig->zoomLevel, 2.0);
}

// An empty folder setting means "Recordings" in the documents folder, made when missing.
TEST_F(RecordingConfigurationBuilderTest, defaultOutputFolderIsMadeInDocuments) {
    QStandardPaths::setTestModeEnabled(true);
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    QDir(documents).removeRecursively();
    const QString resolved = RecordingConfigurationBuilder::resolveOutputDirectory({});
    EXPECT_TRUE(resolved == QDir(documents).filePath("Recordings") || resolved == QDir::tempPath())
        << resolved.toStdString();
    EXPECT_TRUE(QDir(resolved).exists());
    QStandardPaths::setTestModeEnabled(false);
}
