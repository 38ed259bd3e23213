#include "core/recording/RecordingCoordinator.h"

#include "core/recording/CursorSampler.h"
#include "core/recording/CustomCursorSettings.h"
#include "core/recording/ErrorDescription.h"
#include "core/recording/RecordingClock.h"
#include "core/recording/RecordingCountdown.h"
#include "core/recording/RecordingEngineSetup.h"
#include "core/recording/RecordingFramePath.h"
#include "core/recording/RecordingOutputFinisher.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/CursorOverlayController.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/recording/engines/ZoomRenderer.h"
#include "core/recording/engines/iOSDeviceCaptureEngine.h"
#include "core/recording/surfaces/CursorHider.h"
#include "core/recording/surfaces/FloatingRecordingPanelController.h"
#include "core/recording/surfaces/RecordingResultOpener.h"
#include "core/recording/surfaces/StatusBarController.h"
#include "core/settings/UserDefaults.h"
#include "core/support/ErrorReporter.h"
#include "core/support/Formatters.h"
#include "core/support/KeyboardShortcutHandler.h"
#include "core/support/Log.h"
#include "core/support/NotificationManager.h"
#include "core/support/ScreenRecordingPermission.h"
#include "core/support/SleepPreventer.h"
#include "core/support/SystemEventMonitor.h"
#include "core/support/TimerManager.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

namespace {
const char* boolText(bool value) {
    return value ? "true" : "false";
}

QString timerID(const char* id) {
    return QString::fromLatin1(id);
}
} // namespace

RecordingCoordinator::RecordingCoordinator(RecordingServices services, QObject* parent)
    : QObject(parent), m_services(RecordingServices::withFallbacks(std::move(services))),
      m_clock(*m_services.clock), m_defaults(*m_services.defaults),
      m_recovery(m_clock, m_timekeeper,
                 StreamRecovery::Context{
                     [this] { return m_isStoppingRecording; }, [this] { return isPaused(); },
                     [this] { return m_camera.engine(); }, [this] { return m_screenEngine.get(); },
                     [this] { return m_mediaWriter.load(); },
                     [this] {
                         if (m_framePath)
                             m_framePath->rearmPump();
                     }}),
      m_validator(m_services.availableDiskSpace), m_trace(m_clock, *m_services.startupLogDirectory),
      m_preparation(*m_services.engines, m_defaults),
      m_contentCache(*m_services.engines, m_clock, m_trace),
      m_cursorVisibility(*m_services.cursorHider),
      m_cursorOverlayController(m_services.engines->makeCursorOverlayController()),
      m_camera(*m_services.engines,
               [this](const std::optional<QString>& name) { return resolveCameraDevice(name); }) {
    m_cursorSampler = std::make_unique<CursorSampler>(
        *m_cursorOverlayController, m_clock,
        CursorSampler::Hooks{
            [this] {
                return m_screenEngine ? m_screenEngine->captureRectInScreenSpace() : std::nullopt;
            },
            [this] {
                if (auto timeline = currentVideoTimelineTimestamp())
                    return timeline;
                return currentRecordingTimestamp();
            },
            [this] { return m_recordingState.isRecording(); },
            [this] { return m_recordingState.displayName(); }, [this] { return isPaused(); },
            [this] {
                return m_recovery.isRecovering() || m_recovery.isAwaitingRestartFirstFrame().load();
            },
            [this] { return m_metadataRecorder.get(); }, [this] { return m_zoomRenderer.get(); }});
    setupKeyboardShortcuts();
    setupTerminationHandler();
}

RecordingCoordinator::~RecordingCoordinator() {
    m_services.shortcuts->unregisterHandler(KeyboardShortcutHandler::ShortcutKey::stopRecording);
}

void RecordingCoordinator::setRecordingState(RecordingState state) {
    m_recordingState = std::move(state);
    emit recordingStateChanged();
}

void RecordingCoordinator::setRecordingDuration(double seconds) {
    m_recordingDuration = seconds;
    emit recordingDurationChanged();
}

void RecordingCoordinator::setIsPaused(bool paused) {
    if (m_isPaused.exchange(paused) != paused)
        emit isPausedChanged();
}

void RecordingCoordinator::setCountdownValue(int value) {
    m_countdownValue = value;
    emit countdownValueChanged();
}

void RecordingCoordinator::beginStartupTrace(const QString& source) {
    m_trace.begin(source);
}

// MARK: preparation

QCoro::Task<void> RecordingCoordinator::prepareRecording(RecordingMode mode,
                                                         RecordingConfiguration configuration) {
    QPointer<RecordingCoordinator> self(this);
    markStartupPhase(QStringLiteral("prepareRecording.begin"));
    if (!m_recordingState.is<RecordingState::Idle>()) {
        cancelStartupTrace(QStringLiteral("prepare.invalidState"));
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Cannot prepare while recording is active"));
    }
    // From here on a failure leaves `preparing`: only cancelPreparation leads back to idle.
    setRecordingState(RecordingState::preparing());
    m_configuration = configuration;

    markStartupPhase(QStringLiteral("validateConfiguration.begin"));
    validateConfiguration(configuration);
    markStartupPhase(QStringLiteral("validateConfiguration.end"));

    markStartupPhase(QStringLiteral("storageValidation.begin"));
    checkDiskSpace(configuration.outputDirectory);
    validateOutputDirectory(configuration.outputDirectory);
    markStartupPhase(QStringLiteral("storageValidation.end"));

    if (mode.hasVideo()) {
        markStartupPhase(QStringLiteral("shareableContent.resolve.begin"));
        co_await loadShareableContent(false, true);
        if (!self)
            co_return;
        markStartupPhase(QStringLiteral("shareableContent.resolve.end"));
    }

    // A successful content load has proven the screen permission already.
    markStartupPhase(QStringLiteral("checkPermissions.begin"));
    // Calls whose arguments need destroying are made before the co_await: g++ 12 destroys such
    // temporaries of an awaited expression twice.
    QCoro::Task<void> permissions = checkPermissions(mode, configuration, mode.hasVideo());
    co_await permissions;
    if (!self)
        co_return;
    markStartupPhase(QStringLiteral("checkPermissions.end"));

    markStartupPhase(QStringLiteral("prepareEngines.begin"));
    QCoro::Task<RecordingPreparation::Result> preparation =
        m_preparation.prepareEngines(mode, configuration, m_contentCache.cachedShareableContent(),
                                     m_camera.engine(), m_camera.deviceName());
    RecordingPreparation::Result result = co_await preparation;
    if (!self)
        co_return;
    markStartupPhase(QStringLiteral("prepareEngines.end"));
    for (const RecordingPreparationTiming& timing : result.preparationTimings)
        markStartupPhase(QString::fromStdString(fmt::format("prepare.{} {:.1f}ms total {:.1f}ms",
                                                            timing.name.toStdString(),
                                                            timing.deltaMs, timing.totalMs)));
    if (result.shareableContent)
        m_contentCache.store(*result.shareableContent);
    adoptPreparedEngines(std::move(result));

    markStartupPhase(QStringLiteral("configureHandlers.begin"));
    configureHandlers(mode, configuration);
    setRecordingState(RecordingState::ready());
    markStartupPhase(QStringLiteral("prepareRecording.ready"));
}

void RecordingCoordinator::adoptPreparedEngines(RecordingPreparation::Result result) {
    // Engines go first: the old ones may still point at the old writers.
    m_screenEngine = std::move(result.screenEngine);
    m_audioEngine = std::move(result.audioEngine);
    if (!result.usesPrewarmedCamera)
        m_camera.replace(std::move(result.cameraEngine));
    m_audioOnlyRecorder = std::move(result.audioOnlyRecorder);
    m_mediaWriter = nullptr;
    m_layerRecordingManager = std::move(result.layerRecordingManager);
    m_ownedMediaWriter = std::move(result.mediaWriter);
    m_mediaWriter = m_ownedMediaWriter        ? m_ownedMediaWriter.get()
                    : m_layerRecordingManager ? m_layerRecordingManager->getScreenWriter()
                                              : nullptr;
    m_shouldUseWindowPump = result.shouldUseWindowPump;
    m_pumpFrameRate = result.pumpFrameRate;
}

void RecordingCoordinator::configureHandlers(const RecordingMode& mode,
                                             const RecordingConfiguration& configuration) {
    if (mode.isAudioOnly()) {
        if (m_audioEngine && m_audioOnlyRecorder)
            RecordingEngineSetup::installAudioOnlyHandlers(*m_audioEngine, *m_audioOnlyRecorder);
        return;
    }
    m_zoomRenderer.reset();
    if (configuration.studioConfig && configuration.studioConfig->enableClickToZoom)
        m_zoomRenderer = RecordingEngineSetup::makeZoomRenderer(
            *m_services.engines,
            m_screenEngine ? m_screenEngine->captureRectInScreenSpace() : std::nullopt);
    installFramePath(configuration);
    m_metadataRecorder = RecordingEngineSetup::makeMetadataRecorder(
        *m_services.engines, configuration,
        m_screenEngine ? m_screenEngine->configuration() : std::nullopt);
}

void RecordingCoordinator::installFramePath(const RecordingConfiguration& configuration) {
    QPointer<RecordingCoordinator> self(this);
    // Handlers run on engine threads; what touches the coordinator hops to the main thread.
    auto onMain = [self](auto work) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, work] {
                if (self)
                    work(*self);
            },
            Qt::QueuedConnection);
    };
    RecordingFramePath::Hooks hooks;
    hooks.camera = m_camera.engine();
    hooks.markStartupPhase = [onMain](const QString& phase) {
        onMain([phase](RecordingCoordinator& c) { c.markStartupPhase(phase); });
    };
    hooks.firstVideoFrameAppended = [onMain] {
        onMain([](RecordingCoordinator& c) {
            c.finishStartupTrace(QStringLiteral("firstVideoFrameAppended"));
        });
    };
    // The recovery lives as long as the coordinator, which stops every engine before it goes.
    StreamRecovery* recovery = &m_recovery;
    hooks.streamRestarted = [recovery, onMain](MediaTime firstPTS, MediaTime frameDuration,
                                               MediaTime lastVideoDuration) {
        if (recovery->applyStreamRestartOffsetIfNeeded(firstPTS, frameDuration, lastVideoDuration))
            onMain([](RecordingCoordinator& c) { c.m_recovery.takeDowntime(); });
    };
    hooks.appendFailed = [recovery, onMain] {
        if (recovery->claimWriterFailure())
            onMain([](RecordingCoordinator& c) { c.handleMediaWriterFailureIfNeeded(); });
    };
    m_framePath = std::make_shared<RecordingFramePath>(
        RecordingFramePath::Flags{m_isPaused, m_recovery.isInProgress(),
                                  m_recovery.isAwaitingRestartFirstFrame(), m_mediaWriter},
        std::move(hooks), configuration.frameRate,
        RecordingFramePath::Pump{m_shouldUseWindowPump, m_pumpFrameRate, false,
                                 [factory = m_services.engines](const VideoFrame& frame) {
                                     return factory->quickFrameChecksum(frame);
                                 },
                                 m_zoomRenderer});
    RecordingEngineSetup::installFramePath(m_framePath, m_screenEngine.get(), m_audioEngine.get());
    if (m_screenEngine)
        m_screenEngine->setErrorHandler([onMain](const StreamError& error) {
            onMain([error](RecordingCoordinator& c) { c.handleStreamInterruption(error); });
        });
}

QCoro::Task<SCShareableContent>
RecordingCoordinator::loadShareableContent(bool force, bool promptForPermission) {
    return m_contentCache.loadShareableContent(force, promptForPermission);
}

QCoro::Task<std::optional<SCDisplay>> RecordingCoordinator::resolvePrimaryDisplay() {
    // The platform lists the primary display first.
    const SCShareableContent content = co_await loadShareableContent(false, true);
    if (content.displays.empty())
        co_return std::nullopt;
    co_return content.displays.front();
}

QCoro::Task<void> RecordingCoordinator::checkPermissions(RecordingMode mode,
                                                         RecordingConfiguration configuration,
                                                         bool screenPermissionAlreadyResolved) {
    if (mode.hasVideo() && !screenPermissionAlreadyResolved)
        co_await ScreenRecordingPermission::ensureAuthorized(true);
    // The camera is asked for by its own engine when it opens.
    if (configuration.recordMicrophone && !m_services.engines->requestMicrophoneAccess())
        throw RecordingError::permissionDenied(PermissionType::microphone);
}

std::optional<AVCaptureDevice>
RecordingCoordinator::resolveCameraDevice(const std::optional<QString>& name) const {
    return m_preparation.resolveCameraDevice(name);
}

void RecordingCoordinator::stopPrewarmedCamera() {
    // A running recording owns the camera now.
    if (!m_recordingState.isActive())
        m_camera.stop();
}

void RecordingCoordinator::cancelPreparation() {
    if (!m_recordingState.is<RecordingState::Ready>() &&
        !m_recordingState.is<RecordingState::Preparing>())
        return;
    // A prepared writer has its file open already; nothing recorded, so nothing may stay.
    discardOutputs();
    m_configuration.reset();
    setRecordingState(RecordingState::idle());
}

void RecordingCoordinator::releaseLayerRecording() {
    if (!m_layerRecordingManager)
        return;
    m_layerRecordingManager->cancel();
    // The layer writers die with their manager; nothing may keep pointing at them.
    if (!m_ownedMediaWriter)
        m_mediaWriter = nullptr;
    m_layerRecordingManager.reset();
}

// MARK: start

QCoro::Task<void> RecordingCoordinator::startRecording() {
    QPointer<RecordingCoordinator> self(this);
    markStartupPhase(QStringLiteral("startRecording.begin"));
    if (!m_recordingState.is<RecordingState::Ready>()) {
        cancelStartupTrace(QStringLiteral("start.invalidState"));
        throw RecordingError::invalidConfiguration(QStringLiteral("Recording not prepared"));
    }
    if (!m_configuration) {
        cancelStartupTrace(QStringLiteral("start.missingConfiguration"));
        throw RecordingError::invalidConfiguration(QStringLiteral("No configuration set"));
    }
    const RecordingConfiguration configuration = *m_configuration;

    if (configuration.countdown > 0) {
        markStartupPhase(QStringLiteral("countdown.begin"));
        co_await performCountdown(configuration.countdown);
        if (!self)
            co_return;
        markStartupPhase(QStringLiteral("countdown.end"));
    }

    const QDateTime now = m_clock.now();
    m_timekeeper.begin(now);
    setRecordingDuration(0.0);
    setIsPaused(false);
    m_isStoppingRecording = false;
    m_recovery.reset();

    installSystemEventObservers();
    hideCursorIfEnabled();
    setRecordingState(RecordingState::recording(now));
    resetSmartClickZoomState();

    m_services.statusBar->showRecordingControls(*this);
    m_services.panel->show(*this);
    markStartupPhase(QStringLiteral("recordingPanel.show"));
    // Let the panel draw before capture takes the machine's attention.
    co_await m_clock.sleep(0.0);
    if (!self)
        co_return;

    logLine("🔍 Checking MetadataRecorder...");
    if (m_metadataRecorder && m_timekeeper.startTime()) {
        markStartupPhase(QStringLiteral("metadataRecorder.start.begin"));
        m_metadataRecorder->startRecording(*m_timekeeper.startTime());
        m_metadataRecorder->setTimeProvider([self]() -> std::optional<double> {
            if (!self)
                return std::nullopt;
            if (auto timeline = self->currentVideoTimelineTimestamp())
                return timeline;
            return self->currentRecordingTimestamp();
        });
        markStartupPhase(QStringLiteral("metadataRecorder.start.end"));
        m_cursorSampler->configure(configuration.studioConfig,
                                   m_defaults.enableSmartAutoClickZoom(), true);
    } else {
        logLine("⚠️ MetadataRecorder is nil - cannot start recording metadata");
    }

    startCursorMonitoring(configuration);
    m_services.shortcuts->startMonitoring();

    // A failing engine leaves the state at `recording` on purpose: Stop cleans up from there.
    std::exception_ptr failure;
    try {
        if (m_camera.engine()) {
            markStartupPhase(QStringLiteral("cameraCapture.start.begin"));
            m_camera.engine()->startCapture();
            markStartupPhase(QStringLiteral("cameraCapture.start.end"));
        }
        if (m_screenEngine) {
            logLine("🎥 Starting screen capture...");
            markStartupPhase(QStringLiteral("screenCapture.start.begin"));
            co_await m_screenEngine->startCapture();
            if (!self)
                co_return;
            markStartupPhase(QStringLiteral("screenCapture.start.end"));
            logLine("✅ Screen capture started");
        }
        if (m_audioEngine) {
            logLine("🎤 Starting audio capture...");
            markStartupPhase(QStringLiteral("audioCapture.start.begin"));
            m_audioEngine->startCapture();
            markStartupPhase(QStringLiteral("audioCapture.start.end"));
            logLine("✅ Audio capture started");
        }
        if (m_audioOnlyRecorder) {
            m_audioOnlyRecorder->startRecording();
            // Video recordings finish the trace at their first frame instead.
            finishStartupTrace(QStringLiteral("audioOnlyRecordingStarted"));
        }
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        logLine("❌ Failed to start capture engines: {}", describeError(failure));
        cancelStartupTrace(QStringLiteral("captureStartFailed"));
        std::rethrow_exception(failure);
    }

    startDurationTimer();
    if (configuration.autoStopMinutes > 0) {
        logLine("⏱️ Auto-stop timer configured: {} minute(s)", configuration.autoStopMinutes);
        startAutoStopTimer(configuration.autoStopMinutes);
    } else {
        logLine("⏱️ No auto-stop timer configured (unlimited recording)");
    }
    if (configuration.preventSleep)
        m_services.sleepPreventer->preventSleep(QStringLiteral("Screen recording in progress"));
}

void RecordingCoordinator::startCursorMonitoring(const RecordingConfiguration& configuration) {
    const bool clickToZoom =
        configuration.studioConfig && configuration.studioConfig->enableClickToZoom;
    if (!configuration.highlightCursor && !clickToZoom) {
        logLine("⚠️ Cursor monitoring NOT started - no features require it");
        return;
    }
    if (configuration.highlightCursor) {
        if (const auto custom = CustomCursorSettings::fromDefaults(m_defaults))
            m_cursorOverlayController->configureCustomCursor(
                custom->style, custom->size, true, custom->scaleAnimation, custom->rippleEffect,
                custom->rippleColor);
        m_cursorOverlayController->setHighlightEnabled(true);
    }
    logLine("✅ Starting cursor overlay monitoring...");
    m_cursorOverlayController->startMonitoring();
    m_cursorSampler->startSampling();
}

// MARK: pause and resume

void RecordingCoordinator::pauseRecording() {
    const auto* recording = m_recordingState.as<RecordingState::Recording>();
    if (!recording)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Cannot pause when not recording"));
    const QDateTime now = m_clock.now();
    const double elapsed = m_timekeeper.pause(recording->startTime, now);
    setRecordingState(RecordingState::paused(now, elapsed));
    setIsPaused(true);
    // Capture keeps running; frames are dropped until resume and the writers hear of the gap
    // only then.
    if (m_camera.engine())
        m_camera.engine()->setRecordingPaused(true);
    m_services.statusBar->updatePauseState(true);
    m_services.panel->setPaused(true);
    m_clock.invalidate(timerID(TimerManager::TimerID::recordingDuration));
}

void RecordingCoordinator::resumeRecording() {
    const auto* paused = m_recordingState.as<RecordingState::Paused>();
    if (!paused)
        throw RecordingError::invalidConfiguration(QStringLiteral("Cannot resume when not paused"));
    const RecordingTimekeeper::Resumption resumption =
        m_timekeeper.resume(paused->pauseTime, paused->elapsed, m_clock.now());
    // The writers subtract their offset from every later sample, so the file has no gap.
    const MediaTime offset = MediaTime::fromSeconds(resumption.pauseDuration, 600);
    if (MediaWriterEngine* writer = m_mediaWriter.load())
        writer->addTimeOffset(offset);
    if (m_camera.engine())
        m_camera.engine()->addTimeOffset(offset);
    setRecordingState(RecordingState::recording(resumption.stateStartTime));
    setIsPaused(false);
    if (m_camera.engine())
        m_camera.engine()->setRecordingPaused(false);
    m_services.statusBar->updatePauseState(false);
    m_services.panel->setPaused(false);
    startDurationTimer();
}

// MARK: stop

void RecordingCoordinator::invalidateRecordingTimers() {
    for (const char* id :
         {TimerManager::TimerID::recordingDuration, TimerManager::TimerID::recordingAutoStop,
          TimerManager::TimerID::cursorSampling, TimerManager::TimerID::recordingCountdown})
        m_clock.invalidate(timerID(id));
}

void RecordingCoordinator::resetFramePathState() {
    if (m_framePath)
        m_framePath->stopPump();
}

QCoro::Task<void> RecordingCoordinator::stopMonitoringAndCapture() {
    QPointer<RecordingCoordinator> self(this);
    m_cursorOverlayController->stopMonitoring();
    m_cursorOverlayController->setHighlightEnabled(false);
    m_cursorOverlayController->setMagnifierEnabled(false);
    showCursor();
    if (m_screenEngine) {
        try {
            co_await m_screenEngine->stopCapture();
        } catch (const std::exception&) {
            // A stream that fails to stop has stopped delivering all the same.
        }
        if (!self)
            co_return;
    }
    if (m_audioEngine)
        m_audioEngine->stopCapture();
    if (m_camera.engine())
        m_camera.engine()->stopCapture();
}

QCoro::Task<void> RecordingCoordinator::stopRecording() {
    QPointer<RecordingCoordinator> self(this);
    if (!m_recordingState.canStop())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Cannot stop recording in current state"));
    resetSmartClickZoomState();
    // From here engines' errors are expected and ignored.
    m_isStoppingRecording = true;
    removeSystemEventObservers();
    setRecordingState(RecordingState::finalizing());
    invalidateRecordingTimers();
    resetFramePathState();

    co_await stopMonitoringAndCapture();
    if (!self)
        co_return;

    QCoro::Task<QString> finishing = RecordingOutputFinisher::finishOutputs(
        {m_audioOnlyRecorder.get(), m_layerRecordingManager.get(), m_mediaWriter.load(),
         m_screenEngine.get()},
        m_configuration, m_recordingDuration, generateOutputURL(),
        [self] { return !self.isNull(); });
    const QString resultURL = co_await finishing;
    if (!self)
        co_return;
    const std::optional<RecordingPackage> package =
        m_layerRecordingManager ? m_layerRecordingManager->recordingPackage() : std::nullopt;
    if (m_metadataRecorder)
        RecordingOutputFinisher::saveMetadata(
            *m_metadataRecorder, m_recordingDuration,
            RecordingOutputFinisher::metadataURL(resultURL, package));

    const std::optional<RecordingConfiguration> configuration = m_configuration;
    if (configuration && configuration->preventSleep)
        m_services.sleepPreventer->allowSleep();
    m_services.statusBar->hideRecordingControls();
    m_services.panel->hide();
    setRecordingState(RecordingState::completed(resultURL));

    const bool hasStudioFeatures = m_layerRecordingManager || m_metadataRecorder;
    logLine("🎬 Studio features check: hasStudioFeatures={}, layerManager={}, metadata={}",
            boolText(hasStudioFeatures), boolText(bool(m_layerRecordingManager)),
            boolText(bool(m_metadataRecorder)));
    const bool wasAudioOnly = configuration && configuration->mode.isAudioOnly();
    const bool trimAfterRecord = m_defaults.trimAfterRecord();
    const bool shouldOpenTrimmer = trimAfterRecord && !wasAudioOnly;
    logLine("🔍 Trimmer settings: trimAfterRecord={}, wasAudioOnly={}, shouldOpenTrimmer={}",
            boolText(trimAfterRecord), boolText(wasAudioOnly), boolText(shouldOpenTrimmer));

    // The engines stay until the next preparation replaces them.
    resetTiming();
    m_configuration.reset();
    returnToIdleShortly();
    QMetaObject::invokeMethod(
        this,
        [this, resultURL, wasAudioOnly, hasStudioFeatures, shouldOpenTrimmer] {
            const std::optional<RecordingPackage> package =
                m_layerRecordingManager ? m_layerRecordingManager->recordingPackage()
                                        : std::nullopt;
            RecordingOutputFinisher::openResult(*m_services.resultOpener, resultURL, package,
                                                wasAudioOnly, hasStudioFeatures, shouldOpenTrimmer);
        },
        Qt::QueuedConnection);
}

void RecordingCoordinator::returnToIdleShortly() {
    // `completed` is visible for a moment so that views can show the result.
    [](QPointer<RecordingCoordinator> self, RecordingClock& clock) -> QCoro::Task<void> {
        try {
            co_await clock.sleep(0.1);
        } catch (...) {
        }
        if (self)
            self->setRecordingState(RecordingState::idle());
    }(QPointer<RecordingCoordinator>(this), m_clock);
}

void RecordingCoordinator::resetTiming() {
    m_timekeeper.reset();
    setRecordingDuration(0.0);
    setIsPaused(false);
}

void RecordingCoordinator::discardOutputs() {
    if (m_layerRecordingManager)
        releaseLayerRecording();
    else if (MediaWriterEngine* writer = m_mediaWriter.load())
        writer->cancel();
    m_metadataRecorder.reset();
    resetSmartClickZoomState();
}

void RecordingCoordinator::resetSmartClickZoomState() {
    m_cursorSampler->smartClickZoom().resetSmartClickZoomState();
}

QCoro::Task<void> RecordingCoordinator::cleanupAfterError() {
    QPointer<RecordingCoordinator> self(this);
    m_isCleaningUp = true;
    invalidateRecordingTimers();
    removeSystemEventObservers();
    m_recovery.reset();
    if (m_framePath)
        m_framePath->stopPump();
    m_services.statusBar->hideRecordingControls();
    m_services.panel->hide();
    co_await stopMonitoringAndCapture();
    if (!self)
        co_return;
    co_await salvageOutputs();
    if (!self)
        co_return;
    discardOutputs();
    if (m_configuration && m_configuration->preventSleep)
        m_services.sleepPreventer->allowSleep();
    resetTiming();
    m_configuration.reset();
    m_isCleaningUp = false;
}

QCoro::Task<void> RecordingCoordinator::salvageOutputs() {
    QPointer<RecordingCoordinator> self(this);
    m_salvagedURL.reset();
    MediaWriterEngine* writer = m_mediaWriter.load();
    if (m_layerRecordingManager) {
        // A package keeps its metadata inside, where a finished one has it.
        const std::optional<RecordingPackage> package = m_layerRecordingManager->recordingPackage();
        if (!package || !writer || !writer->isWriting())
            co_return;
        if (m_metadataRecorder)
            RecordingOutputFinisher::saveMetadata(*m_metadataRecorder,
                                                  currentVideoTimelineTimestamp().value_or(0.0),
                                                  package->metadataURL);
        const std::optional<QString> kept = co_await m_layerRecordingManager->salvage();
        if (!self || !kept)
            co_return;
        m_salvagedURL = kept;
        logLine("💾 Saved what was recorded before the failure: {}", kept->toStdString());
        co_return;
    }
    // Writers that never received a frame have nothing to keep.
    if (!writer || !writer->isWriting())
        co_return;
    const std::optional<QString> movie = writer->outputURL();
    if (!movie)
        co_return;
    // The metadata goes where a finished recording's would; the salvage cuts it to the length
    // of what it keeps and moves it beside the kept file.
    const QString metadata = RecordingOutputFinisher::metadataURL(*movie, std::nullopt);
    if (m_metadataRecorder)
        RecordingOutputFinisher::saveMetadata(
            *m_metadataRecorder, currentVideoTimelineTimestamp().value_or(0.0), metadata);
    const std::optional<QString> kept = co_await writer->salvage();
    if (!self)
        co_return;
    QFile::remove(metadata);
    if (!kept)
        co_return;
    m_salvagedURL = kept;
    logLine("💾 Saved what was recorded before the failure: {}", kept->toStdString());
}

QString RecordingCoordinator::salvageNotice() const {
    if (!m_salvagedURL)
        return {};
    return QStringLiteral("\n\nWhat was recorded until then is saved as \"%1\".")
        .arg(QFileInfo(*m_salvagedURL).fileName());
}

void RecordingCoordinator::acknowledgeFailure() {
    if (m_recordingState.is<RecordingState::Failed>())
        setRecordingState(RecordingState::idle());
}

QCoro::Task<void> RecordingCoordinator::handleStreamInterruption(StreamError error) {
    QPointer<RecordingCoordinator> self(this);
    const StreamRecovery::Outcome outcome =
        co_await m_recovery.handleStreamInterruption(error, m_recordingState.isActive());
    if (!self || outcome != StreamRecovery::Outcome::gaveUp)
        co_return;
    setRecordingState(RecordingState::failed(RecordingError::streamInterrupted()));
    co_await cleanupAfterError();
    if (!self)
        co_return;
    ErrorReporter::shared().showAlert(
        QStringLiteral("Recording Interrupted"),
        QStringLiteral(
            "The screen capture was interrupted unexpectedly and could not be restarted.") +
            salvageNotice());
}

QCoro::Task<void> RecordingCoordinator::handleMediaWriterFailureIfNeeded() {
    QPointer<RecordingCoordinator> self(this);
    MediaWriterEngine* writer = m_mediaWriter.load();
    if (!writer || !m_recordingState.isActive() || m_isStoppingRecording)
        co_return;
    m_isStoppingRecording = true;
    const QString underlying = writer->lastError().value_or(QStringLiteral("Asset writer failed"));
    const RecordingError error = RecordingError::fileWriteError(underlying);
    setRecordingState(RecordingState::failed(error));
    co_await cleanupAfterError();
    if (!self)
        co_return;
    if (m_salvagedURL)
        ErrorReporter::shared().showAlert(QStringLiteral("Recording Failed"),
                                          error.errorDescription() + salvageNotice());
    else
        ErrorReporter::shared().reportAndAlert(error, QStringLiteral("Asset writer failed"),
                                               QStringLiteral("Recording Failed"));
}

void RecordingCoordinator::installSystemEventObservers() {
    if (m_systemEventsInstalled)
        return;
    m_systemEventsInstalled = true;
    m_pausedForSleep = false;
    QPointer<RecordingCoordinator> self(this);
    m_services.systemEvents->install([self](SystemEventMonitor::Event event) {
        if (self)
            self->handleSystemEvent(event);
    });
}

void RecordingCoordinator::removeSystemEventObservers() {
    if (!m_systemEventsInstalled)
        return;
    m_systemEventsInstalled = false;
    m_services.systemEvents->remove();
}

void RecordingCoordinator::handleSystemEvent(SystemEventMonitor::Event event) {
    logLine("🛰️ System event: {} at {}", systemEventLabel(event).toStdString(),
            m_clock.now().toString(Qt::ISODateWithMs).toStdString());
    // A recording that runs across a suspend would hold a frozen picture for as long as the
    // machine slept; it is paused before the machine sleeps and left paused after.
    if (event == SystemEventMonitor::Event::willSleep &&
        m_recordingState.is<RecordingState::Recording>() && !m_isStoppingRecording) {
        pauseRecording();
        m_pausedForSleep = true;
        logLine("⏸️ Recording paused because the computer is going to sleep");
    } else if (event == SystemEventMonitor::Event::didWake && m_pausedForSleep) {
        m_pausedForSleep = false;
        m_services.notifications->sendNotification(
            QStringLiteral("Recording Paused"),
            QStringLiteral("The recording was paused while the computer slept. Resume it when "
                           "you are ready."));
    }
}

// MARK: timing

std::optional<double> RecordingCoordinator::currentRecordingTimestamp() const {
    return m_timekeeper.currentRecordingTimestamp(m_recordingState, m_clock.now());
}

std::optional<double> RecordingCoordinator::currentVideoTimelineTimestamp() const {
    MediaWriterEngine* writer = m_mediaWriter.load();
    if (!writer)
        return std::nullopt;
    const std::optional<MediaTime> sessionStart = writer->sessionStartTimeValue();
    if (!sessionStart)
        return std::nullopt;
    if (const auto lastCaptured = m_framePath ? m_framePath->lastCapturedVideoPTS() : std::nullopt)
        return std::max(lastCaptured->seconds() - writer->currentTimeOffset().seconds() -
                            sessionStart->seconds(),
                        0.0);
    if (const std::optional<MediaTime> last = writer->lastPresentationTime())
        return std::max(last->seconds() - sessionStart->seconds(), 0.0);
    return std::nullopt;
}

QString RecordingCoordinator::formattedDuration() const {
    return ::formattedDuration(m_recordingDuration);
}

QString RecordingCoordinator::generateOutputURL() const {
    return RecordingPreparation::generateOutputURL(m_configuration ? &*m_configuration : nullptr,
                                                   m_clock.now());
}

QCoro::Task<void> RecordingCoordinator::performCountdown(int seconds) {
    setCountdownValue(seconds);
    m_services.panel->updateStartingCountdown(seconds);
    QPointer<RecordingCoordinator> self(this);
    QCoro::Task<void> countdown = RecordingCountdown::run(m_clock, seconds, [self](int remaining) {
        // A cancelled start (the panel's Cancel, a signal) ends the count at its next second.
        if (!self || !self->m_recordingState.is<RecordingState::Ready>())
            return false;
        self->setCountdownValue(remaining);
        self->m_services.panel->updateStartingCountdown(remaining);
        return true;
    });
    co_await countdown;
}

void RecordingCoordinator::startDurationTimer() {
    QPointer<RecordingCoordinator> self(this);
    m_clock.schedule(timerID(TimerManager::TimerID::recordingDuration), 0.1, true, [self] {
        if (self)
            self->durationTick();
    });
}

void RecordingCoordinator::durationTick() {
    const auto* recording = m_recordingState.as<RecordingState::Recording>();
    if (!recording || m_isPaused)
        return;
    setRecordingDuration(m_timekeeper.recordedSeconds(recording->startTime, m_clock.now()));
    m_services.statusBar->updateDuration(formattedDuration());
}

void RecordingCoordinator::startAutoStopTimer(int minutes) {
    const double seconds = minutes * 60.0;
    logLine("⏱️ Starting auto-stop timer for {} minute(s) ({} seconds)", minutes,
            formatDouble(seconds));
    QPointer<RecordingCoordinator> self(this);
    m_clock.schedule(timerID(TimerManager::TimerID::recordingAutoStop), seconds, false, [self] {
        logLine("⏱️ Auto-stop timer fired! Stopping recording...");
        [](QPointer<RecordingCoordinator> self) -> QCoro::Task<void> {
            if (!self)
                co_return;
            std::exception_ptr failure;
            try {
                co_await self->stopRecording();
            } catch (...) {
                failure = std::current_exception();
            }
            if (failure && self)
                self->setRecordingState(RecordingState::failed(
                    RecordingError::unknown(QString::fromStdString(describeError(failure)))));
        }(self);
    });
}

// MARK: device recordings

void RecordingCoordinator::setIOSDeviceEngine(std::unique_ptr<iOSDeviceCaptureEngine> engine) {
    m_iOSDeviceEngine = std::move(engine);
}

void RecordingCoordinator::cleanUpDeviceEngine() {
    if (m_iOSDeviceEngine)
        m_iOSDeviceEngine->cleanup();
    m_iOSDeviceEngine.reset();
}

void RecordingCoordinator::deviceRecordingDidFinish(const QString& fileURL) {
    setRecordingState(RecordingState::completed(fileURL));
    resetTiming();
    cleanUpDeviceEngine();
    ErrorReporter::shared().info(QStringLiteral("iOS device recording completed: ") +
                                 QFileInfo(fileURL).fileName());
    m_services.notifications->sendCompletionNotification(fileURL);
}

void RecordingCoordinator::deviceRecordingDidFail(const std::exception& error) {
    const QString context = QStringLiteral("iOS device recording failed");
    ErrorReporter::shared().report(error, context);
    const auto* recordingError = dynamic_cast<const RecordingError*>(&error);
    const RecordingError failure =
        recordingError ? *recordingError
                       : RecordingError::unknown(QString::fromStdString(error.what()));
    setRecordingState(RecordingState::failed(failure));
    cleanUpDeviceEngine();
    ErrorReporter::shared().reportAndAlert(failure, context, QStringLiteral("Recording Failed"));
}

// MARK: wiring

void RecordingCoordinator::setupKeyboardShortcuts() {
    QPointer<RecordingCoordinator> self(this);
    m_services.shortcuts->registerHandler(
        KeyboardShortcutHandler::ShortcutKey::stopRecording, [self] {
            [](QPointer<RecordingCoordinator> self) -> QCoro::Task<void> {
                if (!self)
                    co_return;
                try {
                    co_await self->stopRecording();
                } catch (...) {
                    // A shortcut pressed in the wrong state simply does nothing.
                }
            }(self);
        });
}

void RecordingCoordinator::setupTerminationHandler() {
    // The pointer must never stay hidden past the program.
    if (auto* app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, [this] { ensureCursorRestored(); });
}
