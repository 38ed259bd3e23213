#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/model/RecordingState.h"
#include "core/recording/DeviceRecordingReports.h"
#include "core/recording/RecordingEngines.h"
#include "core/recording/RecordingPreparation.h"
#include "core/recording/RecordingPreparationSteps.h"
#include "core/recording/RecordingServices.h"
#include "core/recording/RecordingShutdown.h"
#include "core/recording/RecordingStartupTrace.h"
#include "core/recording/RecordingSurfaces.h"
#include "core/recording/RecordingTimekeeper.h"
#include "core/recording/RecordingTimers.h"
#include "core/recording/RecordingValidator.h"
#include "core/recording/ShareableContentCache.h"
#include "core/recording/StreamRecovery.h"
#include "core/recording/SystemCursorVisibility.h"
#include "core/recording/SystemEventResponder.h"
#include "core/time/MediaTime.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>

#include <QCoro/QCoroTask>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class AudioCaptureEngine;
class AudioOnlyRecorder;
class CameraCaptureEngine;
class CursorOverlayController;
class CursorSampler;
class iOSDeviceCaptureEngine;
class LayerRecordingManager;
class MediaWriterEngine;
class MetadataRecorderEngine;
class RecordingFramePath;
class ScreenCaptureEngine;
class ZoomRenderer;

// Owns one recording at a time, from the click on Record to the file on disk: the state
// machine, the order in which engines start and stop, the timers and the clean-up. One lives
// as long as the application and is shared with every view.
//
// Thread: main. Frame and audio handlers run on engine threads and read only the atomics
// marked below; a stale read costs one frame at worst. After every wait the coordinator checks
// that it still exists before it goes on.
class RecordingCoordinator final : public QObject {
    Q_OBJECT
    Q_PROPERTY(RecordingState recordingState READ recordingState NOTIFY recordingStateChanged)
    Q_PROPERTY(double recordingDuration READ recordingDuration NOTIFY recordingDurationChanged)
    Q_PROPERTY(bool isPaused READ isPaused NOTIFY isPausedChanged)
    Q_PROPERTY(int countdownValue READ countdownValue NOTIFY countdownValueChanged)

public:
    explicit RecordingCoordinator(RecordingServices services, QObject* parent = nullptr);
    ~RecordingCoordinator() override;

    // The lifecycle. Each throws RecordingError and leaves the state its failure describes.
    QCoro::Task<void> prepareRecording(RecordingMode mode, RecordingConfiguration configuration);
    QCoro::Task<void> startRecording();
    void pauseRecording();
    void resumeRecording();
    QCoro::Task<void> stopRecording();
    void cancelPreparation();
    // Releases everything after an unrecoverable failure; the caller sets the state. Never
    // throws.
    QCoro::Task<void> cleanupAfterError();
    // `failed` holds until the person starts again: the next start from the views calls this
    // first, which returns a failed coordinator to idle (and does nothing otherwise).
    void acknowledgeFailure();
    // The screen engine's stream stopped on its own: restart it, or end the recording and say
    // so. Never throws.
    QCoro::Task<void> handleStreamInterruption(StreamError error);
    // The writer latched a failure: end the recording once, however many appends fail.
    QCoro::Task<void> handleMediaWriterFailureIfNeeded();
    // What a recording that ended on an error kept on disk, "<name> (Recovered).<ext>".
    const std::optional<QString>& salvagedURL() const { return m_shutdown.salvagedURL(); }
    // While the engines are released after a failure; the coordinator must live until then.
    bool isCleaningUp() const { return m_isCleaningUp; }

    void beginStartupTrace(const QString& source = QStringLiteral("recordButtonClicked")) {
        m_trace.begin(source);
    }
    void markStartupPhase(const QString& name) { m_trace.mark(name); }
    void finishStartupTrace(const QString& finalPhase) { m_trace.finish(finalPhase); }
    void cancelStartupTrace(const QString& reason) { m_trace.cancel(reason); }

    void prewarmShareableContent() { m_contentCache.prewarmShareableContent(); }
    QCoro::Task<SCShareableContent> loadShareableContent(bool force, bool promptForPermission) {
        return m_contentCache.loadShareableContent(force, promptForPermission);
    }
    QCoro::Task<std::optional<SCDisplay>> resolvePrimaryDisplay() {
        return m_contentCache.resolvePrimaryDisplay();
    }
    void prewarmCamera(const std::optional<QString>& deviceName) {
        m_engines.camera().prewarm(deviceName);
    }
    void stopPrewarmedCamera();
    std::optional<AVCaptureDevice> resolveCameraDevice(const std::optional<QString>& name) const {
        return m_preparation.resolveCameraDevice(name);
    }

    // Seconds of recording so far, pauses and stream outages excluded; absent when not active.
    std::optional<double> currentRecordingTimestamp() const;
    // Seconds on the written video's time line; what metadata events are stamped with.
    std::optional<double> currentVideoTimelineTimestamp() const {
        return m_engines.videoTimelineSeconds();
    }
    // What metadata events are stamped with: the video's time line once frames are written,
    // the recording's clock before.
    std::optional<double> metadataTimestamp() const;
    QString formattedDuration() const;

    void hideCursorIfEnabled() { m_cursorVisibility.hideCursorIfEnabled(); }
    void showCursor() { m_cursorVisibility.showCursor(); }
    void ensureCursorRestored() { m_cursorVisibility.ensureCursorRestored(); }

    void validateConfiguration(const RecordingConfiguration& configuration) const {
        m_validator.validateConfiguration(configuration);
    }
    QCoro::Task<void> checkPermissions(RecordingMode mode, RecordingConfiguration configuration,
                                       bool screenPermissionAlreadyResolved) {
        return m_preparationSteps.checkPermissions(std::move(mode), std::move(configuration),
                                                   screenPermissionAlreadyResolved);
    }
    void checkDiskSpace(const QString& path) const { m_validator.checkDiskSpace(path); }
    void validateOutputDirectory(const QString& path) const {
        m_validator.validateOutputDirectory(path);
    }
    QCoro::Task<void> performCountdown(int seconds);
    void startDurationTimer();
    void startAutoStopTimer(int minutes);
    QString generateOutputURL() const;

    // Reports of the attached-device recorder, which records outside start and stop.
    void setIOSDeviceEngine(std::unique_ptr<iOSDeviceCaptureEngine> engine);
    void deviceRecordingDidFinish(const QString& fileURL);
    void deviceRecordingDidFail(const std::exception& error);

    const RecordingState& recordingState() const { return m_recordingState; }
    double recordingDuration() const { return m_recordingDuration; }
    bool isPaused() const { return m_isPaused.load(); }
    int countdownValue() const { return m_countdownValue; }

    const std::optional<RecordingConfiguration>& configuration() const { return m_configuration; }
    const std::optional<QDateTime>& startTime() const { return m_timekeeper.startTime(); }
    double elapsedBeforePause() const { return m_timekeeper.elapsedBeforePause(); }
    double timeOffset() const { return m_timekeeper.timeOffset(); }
    bool isStoppingRecording() const { return m_isStoppingRecording; }
    bool isCursorHidden() const { return m_cursorVisibility.isCursorHidden(); }
    bool shouldUseWindowPump() const { return m_engines.shouldUseWindowPump(); }
    int pumpFrameRate() const { return m_engines.pumpFrameRate(); }
    const StreamRecovery& streamRecovery() const { return m_recovery; }
    const std::optional<QString>& prewarmedCameraDeviceName() const {
        return m_engines.camera().deviceName();
    }

    ScreenCaptureEngine* screenEngine() const { return m_engines.screen(); }
    AudioCaptureEngine* audioEngine() const { return m_engines.audio(); }
    MediaWriterEngine* mediaWriter() const { return m_engines.screenWriter(); }
    RecordingFramePath* framePath() const { return m_engines.framePath(); }
    CameraCaptureEngine* cameraEngine() const { return m_engines.camera().engine(); }
    LayerRecordingManager* layerRecordingManager() const {
        return m_engines.layerRecordingManager();
    }
    AudioOnlyRecorder* audioOnlyRecorder() const { return m_engines.audioOnlyRecorder(); }
    MetadataRecorderEngine* metadataRecorder() const { return m_engines.metadataRecorder(); }
    ZoomRenderer* zoomRenderer() const { return m_engines.zoomRenderer(); }
    CursorOverlayController& cursorOverlayController() { return *m_cursorOverlayController; }
    CursorSampler& cursorSampler() { return *m_cursorSampler; }
    SystemCursorVisibility& cursorVisibility() { return m_cursorVisibility; }
    ShareableContentCache& shareableContentCache() { return m_contentCache; }
    const RecordingStartupTrace& startupTrace() const { return m_trace; }

signals:
    void recordingStateChanged();
    void recordingDurationChanged();
    void isPausedChanged();
    void countdownValueChanged();

private:
    void setRecordingState(RecordingState state);
    void setRecordingDuration(double seconds);
    void setIsPaused(bool paused);
    void setCountdownValue(int value);

    void configureHandlers(const RecordingMode& mode, const RecordingConfiguration& configuration);
    void installSystemEventObservers() { m_systemEvents.install(); }
    void removeSystemEventObservers() { m_systemEvents.remove(); }
    void resetTiming();
    void resetSmartClickZoomState();
    void returnToIdleShortly();
    void setupKeyboardShortcuts();
    void durationTick();
    // Camera, status bar and panel follow a pause or a resume.
    void showPaused(bool paused);
    // Status bar and panel hidden, sleep allowed again.
    void hideSurfaces() { m_surfaces.hide(m_configuration && m_configuration->preventSleep); }
    // Stops from a timer or a shortcut, where nobody awaits; a failure is the state's when asked.
    static QCoro::Task<void> stopDetached(QPointer<RecordingCoordinator> self, bool failOnError);

    RecordingServices m_services;
    RecordingClock& m_clock;
    const UserDefaults& m_defaults;

    RecordingState m_recordingState;
    double m_recordingDuration = 0.0;
    std::atomic<bool> m_isPaused{false}; // read by frame handlers
    int m_countdownValue = 0;
    std::optional<RecordingConfiguration> m_configuration;
    RecordingTimekeeper m_timekeeper;
    bool m_isStoppingRecording = false;

    // The frame path reads the recovery's flags from engine threads; its own state (last
    // times, pump counts) lives in RecordingFramePath.
    StreamRecovery m_recovery;
    bool m_isCleaningUp = false;

    RecordingSurfaces m_surfaces;
    RecordingTimers m_timers;
    RecordingValidator m_validator;
    RecordingStartupTrace m_trace;
    RecordingPreparation m_preparation;
    ShareableContentCache m_contentCache;
    RecordingPreparationSteps m_preparationSteps;
    SystemCursorVisibility m_cursorVisibility;
    std::unique_ptr<CursorOverlayController> m_cursorOverlayController;
    // Clicks, moves and the 30 Hz samples into the metadata and the smart click-to-zoom.
    std::unique_ptr<CursorSampler> m_cursorSampler;

    // Destroyed before the cursor monitor and the sampler above: the engines' handlers end first.
    RecordingEngines m_engines;
    SystemEventResponder m_systemEvents;
    DeviceRecordingReports m_deviceRecording;
    // Refers to the collaborators above, so it is made last.
    RecordingShutdown m_shutdown;
};
