#include "core/recording/RecordingCoordinator.h"

#include "core/recording/CursorSampler.h"
#include "core/recording/ErrorDescription.h"
#include "core/recording/RecordingClock.h"
#include "core/recording/RecordingCountdown.h"
#include "core/recording/RecordingFramePath.h"
#include "core/recording/RecordingOutputFinisher.h"
#include "core/recording/RecordingSurfaces.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/CursorOverlayController.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/recording/engines/iOSDeviceCaptureEngine.h"
#include "core/settings/UserDefaults.h"
#include "core/support/Formatters.h"
#include "core/support/KeyboardShortcutHandler.h"
#include "core/support/Log.h"

#include <QPointer>

RecordingCoordinator::RecordingCoordinator(RecordingServices services, QObject* parent)
    : QObject(parent), m_services(RecordingServices::withFallbacks(std::move(services))),
      m_clock(*m_services.clock), m_defaults(*m_services.defaults),
      m_recovery(m_clock, m_timekeeper,
                 StreamRecovery::Context{[this] { return m_isStoppingRecording; },
                                         [this] { return isPaused(); },
                                         [this] { return m_engines.camera().engine(); },
                                         [this] { return m_engines.screen(); },
                                         [this] { return m_engines.screenWriter(); },
                                         [this] {
                                             if (m_engines.framePath())
                                                 m_engines.framePath()->rearmPump();
                                         }}),
      m_surfaces(*m_services.statusBar, *m_services.panel, *m_services.sleepPreventer),
      m_timers(m_clock), m_validator(m_services.availableDiskSpace),
      m_trace(m_clock, *m_services.startupLogDirectory),
      m_preparation(*m_services.engines, m_defaults),
      m_contentCache(*m_services.engines, m_clock, m_trace),
      m_preparationSteps(*m_services.engines, m_validator, m_contentCache, m_trace, m_preparation),
      m_cursorVisibility(*m_services.cursorHider),
      m_cursorOverlayController(m_services.engines->makeCursorOverlayController()),
      m_cursorSampler(std::make_unique<CursorSampler>(
          *m_cursorOverlayController, m_clock,
          CursorSampler::Hooks{[this] {
                                   return m_engines.screen()
                                              ? m_engines.screen()->captureRectInScreenSpace()
                                              : std::nullopt;
                               },
                               [this] { return metadataTimestamp(); },
                               [this] { return m_recordingState.isRecording(); },
                               [this] { return m_recordingState.displayName(); },
                               [this] { return isPaused(); },
                               [this] {
                                   return m_recovery.isRecovering() ||
                                          m_recovery.isAwaitingRestartFirstFrame().load();
                               },
                               [this] { return m_engines.metadataRecorder(); },
                               [this] { return m_engines.zoomRenderer(); }})),
      m_engines(*m_services.engines,
                [this](const std::optional<QString>& name) { return resolveCameraDevice(name); }),
      m_systemEvents(
          *m_services.systemEvents, *m_services.notifications, m_clock,
          SystemEventResponder::Hooks{[this] {
                                          return m_recordingState.is<RecordingState::Recording>() &&
                                                 !m_isStoppingRecording;
                                      },
                                      [this] { pauseRecording(); }}),
      m_deviceRecording(*m_services.notifications),
      m_shutdown({m_engines, m_timers, m_systemEvents, m_recovery, *m_cursorSampler,
                  m_cursorVisibility, m_surfaces, *m_services.resultOpener}) {
    setupKeyboardShortcuts();
    m_cursorVisibility.setupTerminationHandler();
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

    // Calls whose arguments need destroying are made before the co_await: g++ 12 destroys such
    // temporaries of an awaited expression twice.
    QCoro::Task<std::optional<RecordingPreparation::Result>> steps = m_preparationSteps.run(
        mode, configuration, m_engines.camera(), [self] { return !self.isNull(); });
    std::optional<RecordingPreparation::Result> result = co_await steps;
    if (!self)
        co_return;
    m_engines.adopt(std::move(*result));

    markStartupPhase(QStringLiteral("configureHandlers.begin"));
    configureHandlers(mode, configuration);
    setRecordingState(RecordingState::ready());
    markStartupPhase(QStringLiteral("prepareRecording.ready"));
}

void RecordingCoordinator::configureHandlers(const RecordingMode& mode,
                                             const RecordingConfiguration& configuration) {
    // The engines report on the main thread, possibly after this coordinator has gone.
    QPointer<RecordingCoordinator> self(this);
    RecordingEngines::Events events;
    events.startupPhase = [self](const QString& phase) {
        if (self)
            self->markStartupPhase(phase);
    };
    events.firstVideoFrameAppended = [self] {
        if (self)
            self->finishStartupTrace(QStringLiteral("firstVideoFrameAppended"));
    };
    events.outageEnded = [self] {
        if (self)
            self->m_recovery.takeDowntime();
    };
    events.writerFailed = [self] {
        if (self)
            self->handleMediaWriterFailureIfNeeded();
    };
    events.streamInterrupted = [self](const StreamError& error) {
        if (self)
            self->handleStreamInterruption(error);
    };
    m_engines.connect(mode, configuration, m_isPaused, m_recovery, std::move(events));
}

void RecordingCoordinator::stopPrewarmedCamera() {
    // A running recording owns the camera now.
    if (!m_recordingState.isActive())
        m_engines.camera().stop();
}

void RecordingCoordinator::cancelPreparation() {
    if (!m_recordingState.is<RecordingState::Ready>() &&
        !m_recordingState.is<RecordingState::Preparing>())
        return;
    // A prepared writer has its file open already; nothing recorded, so nothing may stay.
    m_shutdown.discardOutputs();
    m_configuration.reset();
    setRecordingState(RecordingState::idle());
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

    m_surfaces.showRecording(*this);
    markStartupPhase(QStringLiteral("recordingPanel.show"));
    // Let the panel draw before capture takes the machine's attention.
    co_await m_clock.sleep(0.0);
    if (!self)
        co_return;

    m_cursorSampler->start(configuration, m_defaults, m_timekeeper.startTime(), m_trace);
    m_services.shortcuts->startMonitoring();

    // A failing engine leaves the state at `recording` on purpose: Stop cleans up from there.
    std::exception_ptr failure;
    try {
        QCoro::Task<void> starting =
            m_engines.startCapture([this](const QString& phase) { markStartupPhase(phase); },
                                   [self] { return !self.isNull(); });
        co_await starting;
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self)
        co_return;
    if (failure) {
        logLine("❌ Failed to start capture engines: {}", describeError(failure));
        cancelStartupTrace(QStringLiteral("captureStartFailed"));
        std::rethrow_exception(failure);
    }
    // Video recordings finish the trace at their first frame instead.
    if (m_engines.audioOnlyRecorder())
        finishStartupTrace(QStringLiteral("audioOnlyRecordingStarted"));

    startDurationTimer();
    startAutoStopTimer(configuration.autoStopMinutes);
    if (configuration.preventSleep)
        m_surfaces.preventSleep();
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
    showPaused(true);
    m_timers.stopDuration();
}

void RecordingCoordinator::resumeRecording() {
    const auto* paused = m_recordingState.as<RecordingState::Paused>();
    if (!paused)
        throw RecordingError::invalidConfiguration(QStringLiteral("Cannot resume when not paused"));
    const RecordingTimekeeper::Resumption resumption =
        m_timekeeper.resume(paused->pauseTime, paused->elapsed, m_clock.now());
    // The writers subtract their offset from every later sample, so the file has no gap.
    m_engines.addTimeOffset(MediaTime::fromSeconds(resumption.pauseDuration, 600));
    setRecordingState(RecordingState::recording(resumption.stateStartTime));
    setIsPaused(false);
    showPaused(false);
    startDurationTimer();
}

void RecordingCoordinator::showPaused(bool paused) {
    if (m_engines.camera().engine())
        m_engines.camera().engine()->setRecordingPaused(paused);
    m_surfaces.showPaused(paused);
}

// MARK: stop

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

    QCoro::Task<QString> finishing = m_shutdown.finish(
        m_configuration, m_recordingDuration, [this] { return generateOutputURL(); },
        [self] { return !self.isNull(); });
    const QString resultURL = co_await finishing;
    if (!self)
        co_return;

    hideSurfaces();
    setRecordingState(RecordingState::completed(resultURL));
    const RecordingOutputFinisher::Result result =
        m_shutdown.describeResult(resultURL, m_configuration, m_defaults);

    // The engines stay until the next preparation replaces them.
    resetTiming();
    m_configuration.reset();
    returnToIdleShortly();
    QMetaObject::invokeMethod(
        this, [this, result] { m_shutdown.openResult(result); }, Qt::QueuedConnection);
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

void RecordingCoordinator::resetSmartClickZoomState() {
    m_cursorSampler->smartClickZoom().resetSmartClickZoomState();
}

QCoro::Task<void> RecordingCoordinator::cleanupAfterError() {
    QPointer<RecordingCoordinator> self(this);
    m_isCleaningUp = true;
    QCoro::Task<void> releasing = m_shutdown.releaseAfterError(
        m_configuration && m_configuration->preventSleep, [self] { return !self.isNull(); });
    co_await releasing;
    if (!self)
        co_return;
    resetTiming();
    m_configuration.reset();
    m_isCleaningUp = false;
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
    if (self)
        m_shutdown.alertStreamInterrupted();
}

QCoro::Task<void> RecordingCoordinator::handleMediaWriterFailureIfNeeded() {
    QPointer<RecordingCoordinator> self(this);
    MediaWriterEngine* writer = m_engines.screenWriter();
    if (!writer || !m_recordingState.isActive() || m_isStoppingRecording)
        co_return;
    m_isStoppingRecording = true;
    const QString underlying = writer->lastError().value_or(QStringLiteral("Asset writer failed"));
    const RecordingError error = RecordingError::fileWriteError(underlying);
    setRecordingState(RecordingState::failed(error));
    co_await cleanupAfterError();
    if (self)
        m_shutdown.alertWriterFailed(error);
}

// MARK: timing

std::optional<double> RecordingCoordinator::currentRecordingTimestamp() const {
    return m_timekeeper.currentRecordingTimestamp(m_recordingState, m_clock.now());
}

std::optional<double> RecordingCoordinator::metadataTimestamp() const {
    if (auto timeline = currentVideoTimelineTimestamp())
        return timeline;
    return currentRecordingTimestamp();
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
    m_surfaces.showCountdown(seconds);
    QPointer<RecordingCoordinator> self(this);
    QCoro::Task<void> countdown = RecordingCountdown::run(m_clock, seconds, [self](int remaining) {
        // A cancelled start (the panel's Cancel, a signal) ends the count at its next second.
        if (!self || !self->m_recordingState.is<RecordingState::Ready>())
            return false;
        self->setCountdownValue(remaining);
        self->m_surfaces.showCountdown(remaining);
        return true;
    });
    co_await countdown;
}

void RecordingCoordinator::startDurationTimer() {
    m_timers.startDuration([self = QPointer<RecordingCoordinator>(this)] {
        if (self)
            self->durationTick();
    });
}

void RecordingCoordinator::durationTick() {
    const auto* recording = m_recordingState.as<RecordingState::Recording>();
    if (!recording || m_isPaused)
        return;
    setRecordingDuration(m_timekeeper.recordedSeconds(recording->startTime, m_clock.now()));
    m_surfaces.showDuration(formattedDuration());
}

QCoro::Task<void> RecordingCoordinator::stopDetached(QPointer<RecordingCoordinator> self,
                                                     bool failOnError) {
    if (!self)
        co_return;
    std::exception_ptr failure;
    try {
        co_await self->stopRecording();
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure && failOnError && self)
        self->setRecordingState(RecordingState::failed(
            RecordingError::unknown(QString::fromStdString(describeError(failure)))));
}

void RecordingCoordinator::startAutoStopTimer(int minutes) {
    m_timers.startAutoStop(
        minutes, [self = QPointer<RecordingCoordinator>(this)] { stopDetached(self, true); });
}

// MARK: device recordings

void RecordingCoordinator::setIOSDeviceEngine(std::unique_ptr<iOSDeviceCaptureEngine> engine) {
    m_deviceRecording.setEngine(std::move(engine));
}

void RecordingCoordinator::deviceRecordingDidFinish(const QString& fileURL) {
    setRecordingState(RecordingState::completed(fileURL));
    returnToIdleShortly();
    resetTiming();
    m_deviceRecording.didFinish(fileURL);
}

void RecordingCoordinator::deviceRecordingDidFail(const std::exception& error) {
    const RecordingError failure = m_deviceRecording.reportFailure(error);
    setRecordingState(RecordingState::failed(failure));
    m_deviceRecording.didFail(failure);
}

// MARK: wiring

void RecordingCoordinator::setupKeyboardShortcuts() {
    QPointer<RecordingCoordinator> self(this);
    m_services.shortcuts->registerHandler(
        // A shortcut pressed in the wrong state simply does nothing.
        KeyboardShortcutHandler::ShortcutKey::stopRecording, [self] { stopDetached(self, false); });
}
