#include "app/TrayStatusBar.h"

#include "app/AppIcons.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/support/ErrorReporter.h"
#include "core/support/Log.h"

#include <QMenu>
#include <QSystemTrayIcon>

TrayStatusBar::TrayStatusBar(QObject* parent) : QObject(parent), m_menu(new QMenu()) {
    createStatusItem();
    rebuildMenu();
}

TrayStatusBar::~TrayStatusBar() {
    removeStatusItem();
}

void TrayStatusBar::createStatusItem() {
    // Without a tray program the desktop has nowhere to put an icon; the panel is enough then.
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return;
    m_statusItem = new QSystemTrayIcon(AppIcons::applicationIcon(), this);
    m_statusItem->setContextMenu(m_menu);
    connect(m_statusItem, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason != QSystemTrayIcon::Trigger)
                    return;
                logLine("📍 Status bar clicked");
                if (m_isRecording)
                    m_menu->popup(QCursor::pos());
                else
                    emit showMainWindowRequested();
            });
    updateStatusItemView();
    m_statusItem->show();
}

void TrayStatusBar::removeStatusItem() {
    delete m_statusItem;
    m_statusItem = nullptr;
    delete m_menu;
}

QString TrayStatusBar::title() const {
    return m_isRecording ? QStringLiteral("⏺ ") + m_recordingDuration
                         : QStringLiteral("tavelquiston");
}

void TrayStatusBar::showRecordingControls(RecordingCoordinator& coordinator) {
    m_recordingCoordinator = &coordinator;
    m_isRecording = true;
    m_isPaused = coordinator.isPaused();
    m_recordingDuration = QStringLiteral("00:00");
    updateStatusItemView();
}

void TrayStatusBar::hideRecordingControls() {
    m_isRecording = false;
    m_isPaused = false;
    m_recordingDuration = QStringLiteral("00:00");
    updateStatusItemView();
}

void TrayStatusBar::updateDuration(const QString& formattedDuration) {
    m_recordingDuration = formattedDuration;
    if (m_statusItem)
        m_statusItem->setToolTip(title());
}

void TrayStatusBar::updatePauseState(bool paused) {
    m_isPaused = paused;
    updateStatusItemView();
}

void TrayStatusBar::setShownWhenIdle(bool shown) {
    m_shownWhenIdle = shown;
    updateStatusItemView();
}

void TrayStatusBar::updateStatusItemView() {
    rebuildMenu();
    if (!m_statusItem)
        return;
    m_statusItem->setVisible(m_isRecording || m_shownWhenIdle);
    m_statusItem->setToolTip(title());
    m_statusItem->setIcon(m_isRecording ? AppIcons::recordingIcon(m_isPaused)
                                        : AppIcons::applicationIcon());
}

void TrayStatusBar::rebuildMenu() {
    if (!m_menu)
        return;
    m_menu->clear();
    if (m_isRecording) {
        QAction* stop = m_menu->addAction(tr("Stop Recording"), this, &TrayStatusBar::handleStop);
        stop->setObjectName(QStringLiteral("trayStopAction"));
        QAction* pause =
            m_menu->addAction(m_isPaused ? tr("Resume Recording") : tr("Pause Recording"), this,
                              &TrayStatusBar::handlePauseResume);
        pause->setObjectName(QStringLiteral("trayPauseAction"));
        m_menu->addSeparator();
    }
    m_menu->addAction(tr("Show tavelquiston"), this, &TrayStatusBar::showMainWindowRequested);
    m_menu->addAction(tr("Quit"), this, &TrayStatusBar::quitRequested);
}

void TrayStatusBar::handleStop() {
    logLine("🛑 Stop button clicked");
    if (!m_recordingCoordinator) {
        logLine("❌ No recording coordinator");
        return;
    }
    [](QPointer<RecordingCoordinator> coordinator) -> QCoro::Task<void> {
        logLine("⏹️ Stopping recording...");
        try {
            co_await coordinator->stopRecording();
            logLine("✅ Recording stopped successfully");
        } catch (const std::exception& error) {
            logLine("❌ Error stopping recording: {}", error.what());
            ErrorReporter::shared().showAlert(QStringLiteral("Error Stopping Recording"),
                                              QString::fromUtf8(error.what()));
        }
    }(m_recordingCoordinator);
}

void TrayStatusBar::handlePauseResume() {
    logLine("⏸️ Pause/Resume button clicked");
    if (!m_recordingCoordinator) {
        logLine("❌ No recording coordinator");
        return;
    }
    try {
        if (m_recordingCoordinator->isPaused()) {
            logLine("▶️ Resuming recording...");
            m_recordingCoordinator->resumeRecording();
            logLine("✅ Recording resumed");
        } else {
            logLine("⏸️ Pausing recording...");
            m_recordingCoordinator->pauseRecording();
            logLine("✅ Recording paused");
        }
    } catch (const std::exception& error) {
        logLine("❌ Error pausing/resuming recording: {}", error.what());
    }
}
