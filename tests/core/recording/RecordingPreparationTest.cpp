#include "core/recording/RecordingPreparation.h"
#include "FakeRecordingClock.h"
#include "FakeRecordingEngines.h"
#include "TaskDriver.h"
#include "core/settings/UserDefaults.h"

#include <QTemporaryDir>
#include <QThreadPool>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {
class RecordingPreparationTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(folder.isValid()); }
    void TearDown() override { QThreadPool::globalInstance()->waitForDone(); }

    RecordingConfiguration configuration(RecordingMode mode = screenMode()) const {
        return RecordingConfiguration(std::move(mode), folder.filePath("out"));
    }
    static RecordingMode screenMode() {
        return RecordingMode::screen(SCDisplay{1, Rect(0, 0, 2560, 1440), 2.0});
    }
    static RecordingMode windowMode() {
        return RecordingMode::window(SCWindow{42, "Editor", Rect(0, 0, 800, 600), std::nullopt});
    }

    // Prepares on the thread pool and waits for the result; fails the test on an error.
    RecordingPreparation::Result
    prepare(const RecordingConfiguration& config,
            std::optional<SCShareableContent> cached = SCShareableContent{},
            CameraCaptureEngine* prewarmed = nullptr,
            std::optional<QString> prewarmedName = std::nullopt) {
        auto probe = launch(preparation.prepareEngines(config.mode, config, std::move(cached),
                                                       prewarmed, std::move(prewarmedName)));
        EXPECT_TRUE(settle(probe, clock));
        if (probe->error)
            ADD_FAILURE() << probe->errorText();
        return probe->value ? std::move(*probe->value) : RecordingPreparation::Result{};
    }
    std::string prepareError(const RecordingConfiguration& config) {
        auto probe = launch(preparation.prepareEngines(config.mode, config, SCShareableContent{},
                                                       nullptr, std::nullopt));
        EXPECT_TRUE(settle(probe, clock));
        return probe->errorText();
    }
    WriterConfiguration build(const RecordingConfiguration& config,
                              std::optional<SCStreamConfiguration> stream = SCStreamConfiguration{
                                  2560, 1440}) {
        return preparation.buildWriterConfiguration(config, config.mode, stream, "/out/file.mov");
    }

    QTemporaryDir folder;
    CallLog log;
    FakeRecordingEngineFactory factory{log};
    UserDefaults defaults{folder.filePath("settings.ini")};
    RecordingPreparation preparation{factory, defaults};
    FakeRecordingClock clock;
};
} // namespace

// The declared frame rate is kept between 15 and 60 whatever the capture runs at.
TEST_F(RecordingPreparationTest, WriterFrameRateIsRaisedTo15AndLimitedTo60) {
    for (const auto& [captured, declared] : std::vector<std::pair<int, int>>{
             {10, 15}, {15, 15}, {30, 30}, {60, 60}, {120, 60}, {240, 60}}) {
        RecordingConfiguration config = configuration();
        config.frameRate = captured;
        EXPECT_EQ(build(config).videoSettings->frameRate, declared) << captured;
    }
}

// Size from the stream, codec and quality from the configuration, Rec. 709, 48 kHz stereo AAC.
TEST_F(RecordingPreparationTest, WriterConfigurationCarriesTheRecordingsChoices) {
    RecordingConfiguration config = configuration();
    config.encoder = VideoEncoder::h264;
    config.videoQuality = VideoQuality::medium;
    config.outputFormat = OutputFormat::mp4;
    config.separateAudioTracks = true;
    const WriterConfiguration writer = build(config);
    WriterConfiguration::VideoSettings video;
    video.width = 2560;
    video.height = 1440;
    video.frameRate = 60;
    video.codec = VideoEncoder::h264;
    video.quality = VideoQuality::medium;
    video.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709();
    EXPECT_EQ(writer.videoSettings, video);
    EXPECT_EQ(writer.audioSettings,
              (WriterConfiguration::AudioSettings{48'000, 2, 128'000,
                                                  WriterConfiguration::AudioFormat::aac}));
    EXPECT_EQ(writer.outputFormat, OutputFormat::mp4);
    EXPECT_TRUE(writer.separateAudioTracks);
    EXPECT_FALSE(build(configuration(RecordingMode::systemAudio()), std::nullopt).videoSettings);
    EXPECT_THROW(build(config, std::nullopt), RecordingError);
}

// Alpha takes the stored codec where the machine supports it, and nothing otherwise.
TEST_F(RecordingPreparationTest, AlphaChannelFollowsSupportAndTheStoredCodec) {
    RecordingConfiguration config = configuration();
    config.studioConfig = StudioRecordingConfiguration{};
    config.studioConfig->enableAlphaChannel = true;
    defaults.set("alphaChannelCodec", QStringLiteral("proRes4444"));
    EXPECT_EQ(build(config).videoSettings->alphaCodec, AlphaVideoCodec::proRes4444);
    EXPECT_TRUE(build(config).videoSettings->hasAlphaChannel);
    factory.alphaSupported = false;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(build(config).videoSettings->hasAlphaChannel);
    testing::internal::GetCapturedStdout();
}

// Only H.264 asks the encoder; a refusal names the size.
TEST_F(RecordingPreparationTest, EncoderCheckIsForH264Only) {
    factory.probe.accepts = false;
    EXPECT_NO_THROW(preparation.validateEncoderSupport(VideoEncoder::h265, 7680, 4320));
    EXPECT_TRUE(log.entries().empty());
    try {
        preparation.validateEncoderSupport(VideoEncoder::h264, 7680, 4320);
        FAIL() << "an encoder that refuses must fail the check";
    } catch (const RecordingError& error) {
        EXPECT_EQ(
            error.localizedDescription(),
            "Invalid recording configuration: H.264 hardware encoder doesn't support this "
            "resolution (7680x4320). Try using H.265 encoder or lower resolution/frame rate.");
    }
    EXPECT_THAT(log.entries(), ElementsAre("encoderProbe.canOpenH264Encoder(7680x4320)"));
}

TEST_F(RecordingPreparationTest, OutputNamesFollowTheMode) {
    const QDateTime when(QDate(2026, 3, 1), QTime(9, 5, 3));
    RecordingConfiguration video = configuration();
    video.outputFormat = OutputFormat::mp4;
    EXPECT_EQ(RecordingPreparation::generateOutputURL(&video, when),
              folder.filePath("out/Recording at 2026-03-01 09.05.03.mp4"));
    const RecordingConfiguration audio = configuration(RecordingMode::systemAudio());
    EXPECT_EQ(RecordingPreparation::generateOutputURL(&audio, when),
              folder.filePath("out/Audio Recording at 2026-03-01 09.05.03.mov"));
    EXPECT_EQ(RecordingPreparation::generateOutputURL(nullptr, when), "recording.mov");
}

// A named device is found by name; "default", no name and an unknown name give the default.
TEST_F(RecordingPreparationTest, DevicesResolveByNameWithDefaultFallback) {
    EXPECT_EQ(preparation.resolveCameraDevice(QStringLiteral("Capture Card"))->uniqueID, "cam-2");
    EXPECT_EQ(preparation.resolveCameraDevice(QStringLiteral("Unplugged"))->uniqueID, "cam-0");
    EXPECT_EQ(preparation.resolveCameraDevice(QStringLiteral("default"))->uniqueID, "cam-0");
    EXPECT_EQ(preparation.getMicrophoneDevice(std::nullopt)->uniqueID, "mic-0");
    EXPECT_EQ(preparation.getMicrophoneDevice(QStringLiteral("USB Mic"))->uniqueID, "mic-1");
    factory.defaultCam.reset();
    EXPECT_FALSE(preparation.resolveCameraDevice(QStringLiteral("Unplugged")));
}

// Without cached content the engine fetches its own.
TEST_F(RecordingPreparationTest, MissingCacheFallsBackToTheEnginesOwnFetch) {
    testing::internal::CaptureStdout();
    const auto result = prepare(configuration(), std::nullopt);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(log.entries().front(), "screen.updateAvailableContent");
    EXPECT_EQ(result.preparationTimings.front().name, "screenEngine.create");
    EXPECT_NE(result.preparationTimings[1].name, "shareableContent.useCached");
}

// Microphone capture in a video mode is a separate engine; system audio rides the stream.
TEST_F(RecordingPreparationTest, VideoWithMicrophonePreparesStreamMicrophoneAndWriter) {
    RecordingConfiguration config = configuration();
    config.recordMicrophone = true;
    config.microphoneDevice = QStringLiteral("USB Mic");
    config.enableAEC = false;
    config.frameRate = 30;
    const auto result = prepare(config);
    const std::string file = factory.writer->configured->outputURL.string();
    EXPECT_TRUE(log.contains("audio.setupMicrophoneCapture(USB Mic aec=false)"));
    EXPECT_TRUE(log.contains("screen.configureStream(30 cursor=false audio=true)"));
    EXPECT_EQ(factory.writer->configured->videoSettings->width, 1920); // the stream's size
    for (const auto& timing : result.preparationTimings)
        EXPECT_GE(timing.totalMs, timing.deltaMs);
    EXPECT_EQ(result.screenWriter(), factory.writer);
    EXPECT_FALSE(result.shouldUseWindowPump);
}

// Only window captures with click-to-zoom use the pump, at most at 60 frames per second.
TEST_F(RecordingPreparationTest, WindowPumpOnlyForWindowsWithClickToZoom) {
    RecordingConfiguration window = configuration(windowMode());
    window.frameRate = 120;
    window.studioConfig = StudioRecordingConfiguration{};
    window.studioConfig->enableClickToZoom = true;
    auto result = prepare(window);
    EXPECT_TRUE(result.shouldUseWindowPump);
    EXPECT_EQ(result.pumpFrameRate, 60);
    window.frameRate = 24;
    EXPECT_EQ(prepare(window).pumpFrameRate, 24);

    RecordingConfiguration screen = window;
    screen.mode = screenMode();
    result = prepare(screen);
    EXPECT_FALSE(result.shouldUseWindowPump);
    EXPECT_EQ(result.pumpFrameRate, 60);
}

// Separate layers take the prewarmed camera of the same name and give it its own writer.
TEST_F(RecordingPreparationTest, SeparateLayersReuseAPrewarmedCameraOfTheSameName) {
    RecordingConfiguration config = configuration();
    config.encoder = VideoEncoder::h264;
    config.recordCamera = true;
    config.studioConfig = StudioRecordingConfiguration{};
    config.studioConfig->enableSeparateLayers = true;
    FakeCameraCaptureEngine prewarmed(log, "prewarmed");

    auto result = prepare(config, SCShareableContent{}, &prewarmed, QStringLiteral("default"));
    EXPECT_TRUE(result.usesPrewarmedCamera);
    EXPECT_EQ(result.cameraEngine, nullptr);
    EXPECT_EQ(prewarmed.separateWriter, factory.layers->cameraWriter.get());
    EXPECT_EQ(result.screenWriter(), factory.layers->screenWriter.get());
    EXPECT_TRUE(log.contains("layers.startLayerRecording(screen+camera)"));
    EXPECT_TRUE(log.contains("encoderProbe.canOpenH264Encoder(1920x1080)"));
    const WriterConfiguration& camera = *factory.layers->cameraWriter->configured;
    EXPECT_EQ(camera.videoSettings->width, 1280); // the camera's own size
    EXPECT_EQ(QString::fromStdString(camera.outputURL.string()),
              factory.layers->package->cameraVideoURL);

    log.clear();
    result = prepare(config, SCShareableContent{}, &prewarmed, QStringLiteral("HD Webcam"));
    EXPECT_FALSE(result.usesPrewarmedCamera);
    EXPECT_EQ(result.cameraEngine.get(), factory.camera);
    EXPECT_TRUE(log.contains("camera.setupCamera(Integrated Camera)"));
}

TEST_F(RecordingPreparationTest, SeparateLayersWithoutACameraSkipTheCameraLayer) {
    RecordingConfiguration config = configuration();
    config.recordCamera = true;
    config.studioConfig = StudioRecordingConfiguration{};
    config.studioConfig->enableSeparateLayers = true;
    factory.defaultCam.reset();
    testing::internal::CaptureStdout();
    const auto result = prepare(config);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(log.contains("layers.startLayerRecording(screen)"));
    EXPECT_EQ(result.cameraEngine, nullptr);
}

// An encoder that refuses the size stops the preparation before the writer is configured.
TEST_F(RecordingPreparationTest, RefusedEncoderFailsThePreparation) {
    RecordingConfiguration config = configuration();
    config.encoder = VideoEncoder::h264;
    factory.probe.accepts = false;
    EXPECT_EQ(prepareError(config),
              "Invalid recording configuration: H.264 hardware encoder doesn't support this "
              "resolution (1920x1080). Try using H.265 encoder or lower resolution/frame rate.");
    EXPECT_FALSE(log.contains("writer.startWriting"));
}
