#include "app/RecordingLauncher.h"

#include "app/FloatingRecordingPanel.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/recording/engines/CursorOverlayController.h"
#include "core/settings/UserDefaults.h"
#include "core/support/ErrorReporter.h"
#include "core/support/Log.h"

RecordingLauncher::RecordingLauncher(RecordingCoordinator& coordinator,
                                     FloatingRecordingPanel& panel, const UserDefaults& defaults,
                                     QObject* parent)
    : QObject(parent), m_coordinator(&coordinator), m_panel(panel), m_defaults(defaults) {
    connect(&m_panel, &FloatingRecordingPanel::preparationCancelled, this,
            [this] { m_cancelled = true; });
}

QCoro::Task<bool> RecordingLauncher::start(RecordingMode mode,
                                           RecordingConfigurationBuilder::Selector selector,
                                           const QString& source, int screenAutoStopMinutes) {
    RecordingConfiguration configuration =
        RecordingConfigurationBuilder(m_defaults)
            .build(std::move(mode), selector, screenAutoStopMinutes);
    QCoro::Task<bool> starting = start(std::move(configuration), source);
    co_return co_await starting;
}

QCoro::Task<bool> RecordingLauncher::start(RecordingConfiguration configuration, QString source) {
    QPointer<RecordingLauncher> self(this);
    QPointer<RecordingCoordinator> coordinator = m_coordinator;
    if (coordinator)
        coordinator->acknowledgeFailure();
    if (!coordinator || m_isStarting || !coordinator->recordingState().is<RecordingState::Idle>())
        co_return false;
    m_isStarting = true;
    m_cancelled = false;
    coordinator->beginStartupTrace(source);
    m_panel.showStarting(*coordinator);
    coordinator->markStartupPhase(QStringLiteral("startingPanel.show"));

    bool prepared = false;
    std::exception_ptr failure;
    try {
        const RecordingMode mode = configuration.mode;
        QCoro::Task<void> preparing = coordinator->prepareRecording(mode, configuration);
        co_await preparing;
        prepared = true;
        if (self && coordinator && !m_cancelled) {
            QCoro::Task<void> starting = coordinator->startRecording();
            co_await starting;
            // The magnifier lives as long as the recording: stopping puts it away.
            if (self && coordinator && coordinator->recordingState().isActive() &&
                m_defaults.boolValue("showMagnifier", false))
                coordinator->cursorOverlayController().setMagnifierEnabled(true);
        }
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self || !coordinator)
        co_return false;
    m_isStarting = false;

    const bool recording = coordinator->recordingState().isActive();
    if (m_cancelled || (failure && !recording)) {
        // A cancel during preparation lets it finish first; what it prepared goes now.
        coordinator->cancelPreparation();
        coordinator->cancelStartupTrace(m_cancelled ? QStringLiteral("cancelledByUser")
                                                    : source + QStringLiteral("StartFailed"));
        m_panel.hide();
    }
    if (failure && !m_cancelled) {
        try {
            std::rethrow_exception(failure);
        } catch (const std::exception& error) {
            logLine("❌ Failed to start recording ({}): {}", prepared ? "start" : "preparation",
                    error.what());
            ErrorReporter::shared().showAlert(QStringLiteral("Recording Error"),
                                              QStringLiteral("Failed to start recording: ") +
                                                  QString::fromUtf8(error.what()));
        }
        if (recording) {
            // An engine failed after the state became `recording`: stopping cleans up from there.
            try {
                co_await coordinator->stopRecording();
            } catch (const std::exception&) {
            }
        }
        emit startFinished(false);
        co_return false;
    }
    emit startFinished(recording);
    co_return recording;
}

void RecordingLauncher::toggleRecording() {
    if (!m_coordinator)
        return;
    const RecordingState& state = m_coordinator->recordingState();
    if (m_isStarting) {
        m_panel.cancelPreparation();
    } else if (state.isActive()) {
        stop();
    } else if (state.is<RecordingState::Idle>() || state.is<RecordingState::Failed>()) {
        startPrimaryDisplay();
    }
}

QCoro::Task<void> RecordingLauncher::startPrimaryDisplay() {
    QPointer<RecordingLauncher> self(this);
    std::optional<SCDisplay> display;
    try {
        display = co_await m_coordinator->resolvePrimaryDisplay();
    } catch (const std::exception& error) {
        ErrorReporter::shared().reportRecordingStartFailure(error);
        co_return;
    }
    if (!self)
        co_return;
    if (!display) {
        ErrorReporter::shared().showAlert(QStringLiteral("No Display"),
                                          QStringLiteral("No display was found to record."));
        co_return;
    }
    co_await start(RecordingMode::screen(*display),
                   RecordingConfigurationBuilder::Selector::modeSelection,
                   QStringLiteral("toggle"));
}

void RecordingLauncher::togglePause() {
    if (m_coordinator && m_coordinator->recordingState().isActive())
        m_panel.togglePause();
}

void RecordingLauncher::stop() {
    if (m_coordinator && m_coordinator->recordingState().canStop())
        m_panel.stopRecording();
}
