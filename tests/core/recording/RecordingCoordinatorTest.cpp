#include "CoordinatorHarness.h"

#include "core/recording/engines/iOSDeviceCaptureEngine.h"

#include <QDir>
#include <QFile>

#include <stdexcept>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {
using Strings = std::vector<std::string>;

// True when both were called, `first` before `second`.
bool calledBefore(const Strings& calls, const std::string& first, const std::string& second) {
    const auto a = std::find(calls.begin(), calls.end(), first);
    const auto b = std::find(calls.begin(), calls.end(), second);
    return a != calls.end() && b != calls.end() && a < b;
}

std::string descriptionOf(const RecordingError& error) {
    return error.localizedDescription().toStdString();
}

class FakeDeviceEngine final : public iOSDeviceCaptureEngine, public FakePart {
public:
    explicit FakeDeviceEngine(CallLog& log) : FakePart(log, "device") {}
    void cleanup() override { call("cleanup"); }
};
} // namespace

using RecordingCoordinatorGuards = CoordinatorHarness;

// Each operation refuses the states it doesn't belong to and leaves everything as it was.
TEST_F(RecordingCoordinatorGuards, OperationsRefuseWrongStatesWithoutSideEffects) {
    EXPECT_EQ(run(coordinator->stopRecording()),
              "Invalid recording configuration: Cannot stop recording in current state");
    EXPECT_EQ(run(coordinator->startRecording()),
              "Invalid recording configuration: Recording not prepared");
    EXPECT_EQ(runSync([&] { coordinator->pauseRecording(); }),
              "Invalid recording configuration: Cannot pause when not recording");
    EXPECT_EQ(runSync([&] { coordinator->resumeRecording(); }),
              "Invalid recording configuration: Cannot resume when not paused");
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Idle>());
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(RecordingCoordinatorGuards, PauseWhilePausedAndResumeWhileRecordingAreRefused) {
    prepareAndStart(screenConfiguration());
    EXPECT_EQ(runSync([&] { coordinator->resumeRecording(); }),
              "Invalid recording configuration: Cannot resume when not paused");
    coordinator->pauseRecording();
    const RecordingState paused = coordinator->recordingState();
    EXPECT_EQ(runSync([&] { coordinator->pauseRecording(); }),
              "Invalid recording configuration: Cannot pause when not recording");
    EXPECT_EQ(coordinator->recordingState(), paused);
}

// A start refused by its guard cancels the trace the selector began, and says why in the log.
TEST_F(RecordingCoordinatorGuards, RefusedStartCancelsTheStartupTrace) {
    coordinator->beginStartupTrace(QStringLiteral("area"));
    run(coordinator->startRecording());
    EXPECT_FALSE(coordinator->startupTrace().isActive());
    QFile file(folder.filePath("logs/startup-timing.log"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(text.contains("[area]"));
    EXPECT_TRUE(text.contains("cancelled.start.invalidState"));
}

using RecordingCoordinatorLifecycle = CoordinatorHarness;

// The whole road: every state change is published, in order, and the log tells the story.
TEST_F(RecordingCoordinatorLifecycle, PrepareStartPauseResumeStopCompleteIdle) {
    Strings states;
    QObject::connect(coordinator.get(), &RecordingCoordinator::recordingStateChanged, [&] {
        states.push_back(coordinator->property("recordingState")
                             .value<RecordingState>()
                             .displayName()
                             .toStdString());
    });
    prepareAndStart(screenConfiguration());
    clock.advance(1.0);
    coordinator->pauseRecording();
    clock.advance(1.0);
    coordinator->resumeRecording();
    clock.advance(1.0);
    ASSERT_EQ(run(coordinator->stopRecording()), "");
    clock.advance(0.1);
    drainEvents(clock);

    EXPECT_THAT(states, ElementsAre("Preparing...", "Ready", "Recording", "Paused", "Recording",
                                    "Finalizing...", "Completed", "Idle"));
    EXPECT_THAT(log.of({"metadata"}),
                testing::Contains("metadata.stopRecording(2000ms)")); // 3 s minus the pause
}

using RecordingCoordinatorPreparation = CoordinatorHarness;

// Preparation builds the screen engine and writer in their calling order, then the metadata
// recorder at the stream's size, and ends ready.
TEST_F(RecordingCoordinatorPreparation, ScreenRecordingPreparesEnginesInOrder) {
    prepare(screenConfiguration());
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Ready>());
    const QString file = QString::fromStdString(factory.writer->configured->outputURL.string());
    // Frames may only arrive once the writer is ready for them.
    const Strings calls = log.entries();
    EXPECT_TRUE(
        calledBefore(calls, "writer.configure(" + file.toStdString() + ")", "writer.startWriting"));
    EXPECT_TRUE(calledBefore(calls, "writer.startWriting", "screen.setFrameHandler"));
    EXPECT_TRUE(log.contains("screen.setErrorHandler"));
    EXPECT_TRUE(log.contains("factory.makeMetadataRecorder(1920x1080@60)"));
    EXPECT_EQ(coordinator->mediaWriter(), factory.writer);
    EXPECT_EQ(coordinator->zoomRenderer(), nullptr);
    EXPECT_TRUE(coordinator->configuration().has_value());
}

// Free space of exactly 1 GiB is enough; one byte less is not, and an unreadable volume is an
// error of its own. Each failure leaves `preparing` with the configuration kept.
TEST_F(RecordingCoordinatorPreparation, DiskSpaceBoundaryAndFailureState) {
    freeSpace = oneGiB;
    prepare(screenConfiguration());
    coordinator->cancelPreparation();

    freeSpace = oneGiB - 1;
    EXPECT_EQ(run(coordinator->prepareRecording(screenConfiguration().mode, screenConfiguration())),
              descriptionOf(RecordingError::insufficientDiskSpace()));
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Preparing>());
    EXPECT_TRUE(coordinator->configuration().has_value());
    coordinator->cancelPreparation();

    freeSpace.reset();
    EXPECT_EQ(run(coordinator->prepareRecording(screenConfiguration().mode, screenConfiguration())),
              "Invalid recording configuration: Cannot determine available disk space");
}

// After a failed preparation only cancelPreparation leads back: a second attempt is refused.
TEST_F(RecordingCoordinatorPreparation, FailedPreparationBlocksTheNextUntilCancelled) {
    factory.failures["writer"] = {"startWriting"};
    EXPECT_EQ(run(coordinator->prepareRecording(screenConfiguration().mode, screenConfiguration())),
              "An unknown error occurred: writer.startWriting failed");
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Preparing>());
    EXPECT_EQ(run(coordinator->prepareRecording(screenConfiguration().mode, screenConfiguration())),
              "Invalid recording configuration: Cannot prepare while recording is active");
    coordinator->cancelPreparation();
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Idle>());
    EXPECT_FALSE(coordinator->configuration().has_value());
    factory.failures.clear();
    prepare(screenConfiguration());
}

// Echo cancellation without a named default microphone fails the start even when the
// microphone isn't recorded; a refused microphone is a permission error.
TEST_F(RecordingCoordinatorPreparation, ConfigurationAndPermissionFailures) {
    RecordingConfiguration echo = screenConfiguration();
    echo.enableAEC = true;
    EXPECT_EQ(run(coordinator->prepareRecording(echo.mode, echo)),
              "Invalid recording configuration: AEC only works with default microphone");
    coordinator->cancelPreparation();

    RecordingConfiguration microphone = screenConfiguration();
    microphone.recordMicrophone = true;
    microphone.microphoneDevice = QStringLiteral("default");
    factory.microphoneAccess = false;
    EXPECT_EQ(run(coordinator->prepareRecording(microphone.mode, microphone)),
              descriptionOf(RecordingError::permissionDenied(PermissionType::microphone)));
    coordinator->cancelPreparation();

    ScreenRecordingPermission::setAccess(std::make_unique<FakeScreenCaptureAccess>(false));
    const int fetchesBefore = factory.fetchCount();
    EXPECT_EQ(run(coordinator->prepareRecording(microphone.mode, microphone)),
              descriptionOf(RecordingError::permissionDenied(PermissionType::screenRecording)));
    EXPECT_EQ(factory.fetchCount(), fetchesBefore); // refused before the content is asked for
}

// Click-to-zoom gets a live renderer fitted to the captured rectangle, configured in order.
TEST_F(RecordingCoordinatorPreparation, ClickToZoomConfiguresTheZoomRenderer) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.studioConfig = StudioRecordingConfiguration{};
    configuration.studioConfig->enableClickToZoom = true;
    factory.failures.clear();
    prepare(configuration);
    EXPECT_THAT(log.of({"zoom"}),
                ElementsAre("zoom.setCaptureFrame(1920x1080@0,0)", "zoom.setClickZoom(true)",
                            "zoom.setFollowCursor(true)", "zoom.setHUDEnabled(false)",
                            "zoom.setHUDIncludeInRecording(false)", "zoom.setDebugEnabled(false)"));
}

using RecordingCoordinatorStart = CoordinatorHarness;

// The panel shows before capture; camera, screen and audio start in that order; sleep is held
// last. Separate layers and a microphone bring every engine into play.
TEST_F(RecordingCoordinatorStart, StartsSurfacesThenEnginesInOrder) {
    prepare(fullConfiguration());
    log.clear();
    ASSERT_EQ(run(coordinator->startRecording()), "");

    EXPECT_THAT(log.of({"statusBar", "panel", "metadata", "camera", "screen", "audio", "sleep"}),
                ElementsAre("statusBar.showRecordingControls", "panel.show",
                            "metadata.startRecording(2026-03-01T14:05:09)", "camera.startCapture",
                            "screen.startCapture", "audio.startCapture",
                            "sleep.prevent(Screen recording in progress)"));
    EXPECT_EQ(clock.sleeps, std::vector<double>{0.0}); // the panel gets one turn to draw
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Recording>());
    EXPECT_EQ(coordinator->startTime(), clock.now());
}

// A highlighted cursor applies the stored custom cursor (unknown style: the first; size not
// above 0: 24) and starts monitoring.
TEST_F(RecordingCoordinatorStart, HighlightAppliesTheCustomCursorAndMonitors) {
    defaults->set("enableCustomCursor", true);
    defaults->set("cursorStyle", QStringLiteral("sparkles"));
    defaults->set("cursorSize", -3.0);
    defaults->set("enableCursorRippleEffect", false);
    RecordingConfiguration configuration = screenConfiguration();
    configuration.highlightCursor = true;
    prepareAndStart(configuration);
    EXPECT_THAT(log.of({"cursor"}),
                ElementsAre("cursor.setClickThreshold(500ms)", "cursor.setClickHandler",
                            "cursor.setCursorMoveHandler",
                            "cursor.configureCustomCursor(circle 24 true true false)",
                            "cursor.setHighlightEnabled(true)", "cursor.startMonitoring"));
}

// The metadata clock prefers the video's time line and falls back to the recording's time.
TEST_F(RecordingCoordinatorStart, MetadataTimeFollowsTheVideoTimeline) {
    prepareAndStart(screenConfiguration());
    clock.advance(2.0);
    ASSERT_TRUE(factory.metadata->timeProvider);
    EXPECT_EQ(factory.metadata->timeProvider(), 2.0);          // no session yet: 2 s of recording
    factory.writer->sessionStart = MediaTime::make(6000, 600); // 10 s
    factory.writer->lastPTS = MediaTime::make(6900, 600);      // 11.5 s
    EXPECT_EQ(factory.metadata->timeProvider(), 1.5);
}

// A failing engine leaves `recording` with nothing cleaned up; later engines never start.
TEST_F(RecordingCoordinatorStart, CaptureFailureLeavesRecordingAndCancelsTrace) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.recordMicrophone = true;
    configuration.microphoneDevice = QStringLiteral("default");
    factory.failures["screen"] = {"startCapture"};
    prepare(configuration);
    coordinator->beginStartupTrace();
    EXPECT_EQ(run(coordinator->startRecording()),
              "An unknown error occurred: screen.startCapture failed");
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Recording>());
    EXPECT_FALSE(log.contains("audio.startCapture"));
    EXPECT_FALSE(clock.isActive(TimerManager::TimerID::recordingDuration));
    EXPECT_FALSE(coordinator->startupTrace().isActive());
    EXPECT_EQ(run(coordinator->stopRecording()), ""); // Stop still leads out
}

// A countdown of 3 publishes 3, 2, 1, 0 a second apart and starts only after 3 s.
TEST_F(RecordingCoordinatorStart, CountdownOfThreeTakesThreeSeconds) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.countdown = 3;
    prepare(configuration);
    log.clear();
    auto start = launch(coordinator->startRecording());
    EXPECT_EQ(coordinator->countdownValue(), 3);
    clock.advance(2.9);
    drainEvents(clock);
    EXPECT_FALSE(start->done);
    EXPECT_EQ(coordinator->countdownValue(), 1);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Ready>());
    clock.advance(0.1);
    ASSERT_TRUE(settle(start, clock));
    EXPECT_EQ(start->errorText(), "");
    EXPECT_EQ(coordinator->countdownValue(), 0);
    EXPECT_THAT(log.of({"panel"}),
                ElementsAre("panel.updateStartingCountdown(3)", "panel.updateStartingCountdown(2)",
                            "panel.updateStartingCountdown(1)", "panel.updateStartingCountdown(0)",
                            "panel.show"));
    EXPECT_FALSE(clock.isActive(TimerManager::TimerID::recordingCountdown));
    EXPECT_EQ(coordinator->startTime(), clock.now());
}

TEST_F(RecordingCoordinatorStart, CountdownOfZeroRunsNoTimer) {
    prepareAndStart(screenConfiguration());
    for (const auto& scheduled : clock.scheduled)
        EXPECT_NE(scheduled.id, TimerManager::TimerID::recordingCountdown);
}

// When the coordinator goes away mid-countdown, the countdown ends with an interruption and its
// timer is gone.
TEST_F(RecordingCoordinatorStart, CountdownEndsWhenItsOwnerIsGone) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.countdown = 3;
    prepare(configuration);
    auto start = launch(coordinator->startRecording());
    coordinator.reset();
    clock.advance(1.0);
    ASSERT_TRUE(start->done);
    EXPECT_EQ(start->errorText(), descriptionOf(RecordingError::streamInterrupted()));
    EXPECT_FALSE(clock.isActive(TimerManager::TimerID::recordingCountdown));
}

// The duration ticks every 0.1 s from the recording's start and reaches the status bar.
TEST_F(RecordingCoordinatorStart, DurationTimerPublishesRecordedTime) {
    prepareAndStart(screenConfiguration());
    clock.advance(61.05);
    EXPECT_NEAR(coordinator->recordingDuration(), 61.0, 1e-9); // last tick at 61.0 s
    EXPECT_EQ(statusBar.durations.back(), "01:01");
}

// Auto-stop after n minutes stops the recording on its own; its failure ends in `failed`.
TEST_F(RecordingCoordinatorStart, AutoStopStopsAfterItsMinutes) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.autoStopMinutes = 2;
    prepareAndStart(configuration);
    clock.advance(119.9);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Recording>());
    clock.advance(0.1);
    drainEvents(clock);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Completed>());
}

TEST_F(RecordingCoordinatorStart, FailedAutoStopEndsInFailed) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.autoStopMinutes = 1;
    factory.failures["writer"] = {"finishWriting"};
    prepareAndStart(configuration);
    clock.advance(60.0);
    drainEvents(clock);
    const auto* failed = coordinator->recordingState().as<RecordingState::Failed>();
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->error.kind(), RecordingError::Kind::unknown);
    EXPECT_EQ(failed->error.detail(), "An unknown error occurred: writer.finishWriting failed");
}

using RecordingCoordinatorPause = CoordinatorHarness;

// Pauses of 2 s and 3 s move the writer and camera back by exactly those times, at timescale
// 600 (2 s = 1200/600, 3 s = 1800/600), and the recorded time continues where it stopped.
TEST_F(RecordingCoordinatorPause, PausesBecomeWriterAndCameraOffsets) {
    prepareAndStart(fullConfiguration());
    FakeMediaWriter& writer = *factory.layers->screenWriter;
    clock.advance(4.0);
    coordinator->pauseRecording();
    EXPECT_EQ(coordinator->recordingState(),
              RecordingState::paused(clock.now(), 4.0)); // 4 s recorded so far
    EXPECT_EQ(coordinator->currentRecordingTimestamp(), 4.0);
    clock.advance(2.0);
    EXPECT_EQ(coordinator->recordingDuration(), 4.0); // the last tick stands during a pause
    coordinator->resumeRecording();
    clock.advance(1.0);
    coordinator->pauseRecording();
    clock.advance(3.0);
    coordinator->resumeRecording();
    clock.advance(1.0);

    EXPECT_DOUBLE_EQ(coordinator->timeOffset(), 5.0);
    EXPECT_DOUBLE_EQ(writer.currentTimeOffset().seconds(), 5.0);
    // 11 s of wall time minus 5 s of pauses.
    EXPECT_EQ(coordinator->currentRecordingTimestamp(), 6.0);
    EXPECT_DOUBLE_EQ(coordinator->recordingDuration(), 6.0);
    EXPECT_EQ(coordinator->startTime(), clock.now().addSecs(-11));
    EXPECT_THAT(log.of({"screenWriter", "camera"}),
                testing::IsSupersetOf(
                    {"screenWriter.addTimeOffset(1200/600)", "screenWriter.addTimeOffset(1800/600)",
                     "camera.addTimeOffset(1200/600)", "camera.addTimeOffset(1800/600)"}));
}

// A pause tells camera, status bar and panel, stops the duration timer; a resume undoes it.
TEST_F(RecordingCoordinatorPause, PauseAndResumeNotifyEverySurface) {
    prepareAndStart(fullConfiguration());
    log.clear();
    coordinator->pauseRecording();
    EXPECT_TRUE(coordinator->isPaused());
    EXPECT_FALSE(clock.isActive(TimerManager::TimerID::recordingDuration));
    coordinator->resumeRecording();
    EXPECT_FALSE(coordinator->isPaused());
    EXPECT_TRUE(clock.isActive(TimerManager::TimerID::recordingDuration));
    EXPECT_THAT(log.of({"camera", "statusBar", "panel"}),
                testing::IsSupersetOf(
                    {"camera.setRecordingPaused(true)", "statusBar.updatePauseState(true)",
                     "panel.setPaused(true)", "camera.setRecordingPaused(false)",
                     "statusBar.updatePauseState(false)", "panel.setPaused(false)"}));
}

// Stopping while paused works, and the pause at the end adds no offset.
TEST_F(RecordingCoordinatorPause, StopWhilePausedAddsNoOffset) {
    prepareAndStart(screenConfiguration());
    clock.advance(1.0);
    coordinator->pauseRecording();
    clock.advance(5.0);
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    EXPECT_FALSE(log.contains("writer.addTimeOffset(3000/600)"));
    EXPECT_DOUBLE_EQ(factory.writer->currentTimeOffset().seconds(), 0.0);
}

using RecordingCoordinatorStop = CoordinatorHarness;

// Stop: monitors, capture, the package, metadata, then the surfaces; timers go in their fixed
// order.
TEST_F(RecordingCoordinatorStop, StopsEverythingInOrderAndCompletes) {
    prepareAndStart(fullConfiguration());
    clock.advance(3.0);
    log.clear();
    clock.invalidated.clear();
    EXPECT_EQ(run(coordinator->stopRecording()), "");

    const RecordingPackage package = *factory.layers->package;
    // Nothing is finalised while an engine still delivers.
    const Strings calls = log.entries();
    for (const char* engine : {"screen.stopCapture", "audio.stopCapture", "camera.stopCapture"})
        EXPECT_TRUE(calledBefore(calls, engine, "layers.finalizeLayers")) << engine;
    EXPECT_TRUE(log.contains("metadata.saveMetadata(" + package.metadataURL.toStdString() + ")"));
    EXPECT_TRUE(log.contains("sleep.allow"));
    for (const char* timer :
         {TimerManager::TimerID::recordingDuration, TimerManager::TimerID::recordingAutoStop,
          TimerManager::TimerID::cursorSampling})
        EXPECT_FALSE(clock.isActive(timer)) << timer;
    EXPECT_EQ(coordinator->recordingState(), RecordingState::completed(package.packageURL));
    EXPECT_FALSE(coordinator->configuration().has_value());
    EXPECT_EQ(coordinator->recordingDuration(), 0.0);
    EXPECT_NE(coordinator->cameraEngine(), nullptr); // kept until the next preparation
}

// `completed` lasts 0.1 s; a preparation inside it is refused; then the editor opens, also
// with "trimAfterRecord" off.
TEST_F(RecordingCoordinatorStop, CompletedTurnsIdleAfterATenthAndOpensTheTrimmer) {
    prepareAndStart(screenConfiguration());
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    EXPECT_EQ(clock.sleeps.back(), 0.1);
    clock.advance(0.09);
    EXPECT_EQ(run(coordinator->prepareRecording(screenConfiguration().mode, screenConfiguration())),
              "Invalid recording configuration: Cannot prepare while recording is active");
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Completed>());
    clock.advance(0.01);
    drainEvents(clock);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Idle>());
    const QString file = factory.writer->finishedURL;
    EXPECT_TRUE(file.startsWith(outputFolder() + "/Recording at "));
    EXPECT_TRUE(log.contains("opener.openTrimmer(" + file.toStdString() + ")"));
    // The metadata hides beside the movie under the movie's name.
    const QString metadata =
        outputFolder() + "/." + QFileInfo(file).completeBaseName() + ".metadata.json";
    EXPECT_TRUE(log.contains("metadata.saveMetadata(" + metadata.toStdString() + ")"));
}

// An audio recording finishes its package and opens it in the default application.
TEST_F(RecordingCoordinatorStop, AudioOnlyOpensInTheDefaultApplication) {
    RecordingConfiguration configuration(RecordingMode::systemAudio(), outputFolder());
    prepareAndStart(configuration);
    EXPECT_THAT(log.of({"audioOnly", "audio", "screen"}),
                ElementsAre("audioOnly.prepareRecording", "audio.setupSystemAudioCapture",
                            "audio.startCapture", "audioOnly.startRecording"));
    EXPECT_EQ(coordinator->metadataRecorder(), nullptr);
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    drainEvents(clock);
    EXPECT_THAT(log.of({"opener"}),
                ElementsAre("opener.openURL(/out/Audio Recording.vxa)",
                            "opener.activateFileViewerSelecting(/out/Audio Recording.vxa)"));
}

// A layer package is the result; metadata goes into it and the editor opens its screen file.
TEST_F(RecordingCoordinatorStop, LayerPackageIsTheResult) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.studioConfig = StudioRecordingConfiguration{};
    configuration.studioConfig->enableSeparateLayers = true;
    factory.screen = nullptr;
    prepareAndStart(configuration);
    factory.screen->captureRect = Rect(100, 50, 1920, 1080);
    clock.advance(2.5);
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    drainEvents(clock);
    const RecordingPackage package = *factory.layers->package;
    EXPECT_EQ(coordinator->recordingState(), RecordingState::completed(package.packageURL));
    const PackageConfiguration expected{false, true, Size{1920, 1080}, 60, 2.5, Point{100, 50}};
    EXPECT_EQ(*factory.layers->finalized, expected);
    EXPECT_TRUE(log.contains("metadata.saveMetadata(" + package.metadataURL.toStdString() + ")"));
    EXPECT_TRUE(log.contains("opener.openTrimmer(" + package.screenVideoURL.toStdString() + ")"));
}

// A package that fails to finalize still leaves the screen file.
TEST_F(RecordingCoordinatorStop, FailedPackageFallsBackToTheScreenFile) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.studioConfig = StudioRecordingConfiguration{};
    configuration.studioConfig->enableSeparateLayers = true;
    factory.failures["layers"] = {"finalizeLayers"};
    prepareAndStart(configuration);
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    EXPECT_TRUE(log.contains("screenWriter.finishWriting"));
    EXPECT_EQ(coordinator->recordingState(),
              RecordingState::completed(factory.layers->package->screenVideoURL));
}

// A writer that can't finish leaves `finalizing` with the stop flag set; a metadata file that
// can't be saved doesn't stop the recording from completing.
TEST_F(RecordingCoordinatorStop, FailuresWhileFinishing) {
    factory.failures["writer"] = {"finishWriting"};
    prepareAndStart(screenConfiguration());
    EXPECT_EQ(run(coordinator->stopRecording()),
              "An unknown error occurred: writer.finishWriting failed");
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Finalizing>());
    EXPECT_TRUE(coordinator->isStoppingRecording());

    makeCoordinator();
    factory.failures = {{"metadata", {"saveMetadata"}}, {"screen", {"stopCapture"}}};
    prepareAndStart(screenConfiguration());
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Completed>());
}

// The stop shortcut stops a running recording.
TEST_F(RecordingCoordinatorStop, KeyboardShortcutStops) {
    prepareAndStart(screenConfiguration());
    EXPECT_TRUE(shortcuts.handleKeyEvent(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key_S));
    drainEvents(clock);
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Completed>());
}

using RecordingCoordinatorCleanup = CoordinatorHarness;

// Cancelling a preparation drops the package and returns to idle; it ignores active states.
TEST_F(RecordingCoordinatorCleanup, CancelPreparationOnlyBeforeTheStart) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.studioConfig = StudioRecordingConfiguration{};
    configuration.studioConfig->enableSeparateLayers = true;
    prepare(configuration);
    coordinator->cancelPreparation();
    EXPECT_TRUE(log.contains("layers.cancel"));
    EXPECT_EQ(coordinator->layerRecordingManager(), nullptr);
    EXPECT_EQ(coordinator->mediaWriter(), nullptr); // the package's writer went with it
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Idle>());

    // The single writer has its file open once prepared; a cancel must take it away.
    prepare(screenConfiguration());
    EXPECT_FALSE(log.contains("writer.cancel"));
    coordinator->cancelPreparation();
    EXPECT_TRUE(log.contains("writer.cancel"));

    prepareAndStart(screenConfiguration());
    coordinator->cancelPreparation();
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Recording>());
}

// After an error everything stops and the single file is cancelled; the state is the caller's.
TEST_F(RecordingCoordinatorCleanup, CleanupAfterErrorReleasesEverything) {
    RecordingConfiguration configuration = screenConfiguration();
    configuration.autoStopMinutes = 5;
    prepareAndStart(configuration);
    log.clear();
    EXPECT_EQ(run(coordinator->cleanupAfterError()), "");
    const Strings calls = log.entries();
    EXPECT_TRUE(calledBefore(calls, "screen.stopCapture", "writer.cancel"));
    EXPECT_THAT(calls, testing::IsSupersetOf({"panel.hide", "cursor.stopMonitoring", "sleep.allow",
                                              "statusBar.hideRecordingControls"}));
    EXPECT_FALSE(clock.isActive(TimerManager::TimerID::recordingAutoStop));
    EXPECT_TRUE(coordinator->recordingState().is<RecordingState::Recording>());
    EXPECT_EQ(coordinator->metadataRecorder(), nullptr);
    EXPECT_FALSE(coordinator->startTime().has_value());
}

// The system pointer hidden for a drawn cursor comes back on stop, and when the coordinator
// goes away in the middle of a recording.
TEST_F(RecordingCoordinatorCleanup, HiddenCursorIsAlwaysRestored) {
    coordinator->cursorVisibility().hideSystemCursor = true;
    prepareAndStart(screenConfiguration());
    EXPECT_TRUE(coordinator->isCursorHidden());
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    EXPECT_THAT(log.of({"hider"}), ElementsAre("hider.hideCursor", "hider.showCursor"));

    makeCoordinator();
    coordinator->cursorVisibility().hideSystemCursor = true;
    log.clear();
    prepareAndStart(screenConfiguration());
    coordinator.reset();
    EXPECT_THAT(log.of({"hider"}), ElementsAre("hider.hideCursor", "hider.showCursor"));
}

// A prewarmed camera is reused for the same name, replaced for another, and not stopped while
// a recording runs.
TEST_F(RecordingCoordinatorCleanup, PrewarmedCameraLifecycle) {
    coordinator->prewarmCamera(std::nullopt);
    coordinator->prewarmCamera(QStringLiteral("default"));
    EXPECT_THAT(log.of({"camera"}),
                ElementsAre("camera.setupCamera(Integrated Camera)", "camera.startCapture"));
    coordinator->prewarmCamera(QStringLiteral("HD Webcam"));
    EXPECT_THAT(log.of({"camera"}),
                ElementsAre("camera.setupCamera(Integrated Camera)", "camera.startCapture",
                            "camera.stopCapture", "camera.cleanup", "camera.setupCamera(HD Webcam)",
                            "camera.startCapture"));
    EXPECT_EQ(coordinator->prewarmedCameraDeviceName(), QStringLiteral("HD Webcam"));

    // A recording of the same camera takes the running one instead of opening it again.
    RecordingConfiguration configuration = fullConfiguration();
    configuration.cameraDevice = QStringLiteral("HD Webcam");
    CameraCaptureEngine* prewarmed = coordinator->cameraEngine();
    log.clear();
    prepareAndStart(configuration);
    EXPECT_EQ(coordinator->cameraEngine(), prewarmed);
    EXPECT_THAT(log.of({"camera"}),
                ElementsAre("camera.configureSeparateWriter", "camera.startCapture"));
    coordinator->stopPrewarmedCamera(); // the recording owns it now
    EXPECT_EQ(coordinator->cameraEngine(), prewarmed);
    EXPECT_EQ(run(coordinator->stopRecording()), "");
    coordinator->stopPrewarmedCamera();
    EXPECT_EQ(coordinator->cameraEngine(), nullptr);
}

// A device recording reports its end or its failure; the engine is cleaned up either way.
TEST_F(RecordingCoordinatorCleanup, DeviceRecordingCallbacks) {
    coordinator->setIOSDeviceEngine(std::make_unique<FakeDeviceEngine>(log));
    coordinator->deviceRecordingDidFinish(QStringLiteral("/out/Phone.mov"));
    EXPECT_EQ(coordinator->recordingState(), RecordingState::completed("/out/Phone.mov"));
    coordinator->setIOSDeviceEngine(std::make_unique<FakeDeviceEngine>(log));
    testing::internal::CaptureStderr();
    coordinator->deviceRecordingDidFail(RecordingError::captureDeviceUnavailable());
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(coordinator->recordingState(),
              RecordingState::failed(RecordingError::captureDeviceUnavailable()));
    // Any other error fails the recording as an unknown one that keeps its text.
    coordinator->setIOSDeviceEngine(std::make_unique<FakeDeviceEngine>(log));
    testing::internal::CaptureStderr();
    coordinator->deviceRecordingDidFail(std::runtime_error("cable pulled"));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(coordinator->recordingState(),
              RecordingState::failed(RecordingError::unknown(QStringLiteral("cable pulled"))));
    EXPECT_THAT(log.of({"device"}),
                ElementsAre("device.cleanup", "device.cleanup", "device.cleanup"));
}
