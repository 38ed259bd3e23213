#include "app/FloatingRecordingPanel.h"

#include "app/CountdownOverlay.h"
#include "app/DesktopGeometry.h"
#include "app/RecordingPanelWidget.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/support/Log.h"

#include <QGuiApplication>
#include <QLabel>
#include <QScreen>

#include <exception>

namespace {
QString durationText(double seconds) {
    const int whole = std::max(0, int(seconds));
    return QString::asprintf("%02d:%02d", whole / 60, whole % 60);
}
} // namespace

FloatingRecordingPanel::FloatingRecordingPanel(QObject* parent) : QObject(parent) {
    m_durationTimer.setInterval(250);
    connect(&m_durationTimer, &QTimer::timeout, this, [this] {
        if (m_coordinator)
            m_recordingDuration = m_coordinator->currentRecordingTimestamp().value_or(0.0);
        refresh();
    });
}

FloatingRecordingPanel::~FloatingRecordingPanel() = default;

QWidget* FloatingRecordingPanel::window() const {
    return m_panel.get();
}

void FloatingRecordingPanel::prewarmPanel() {
    createPanel();
}

void FloatingRecordingPanel::createPanel() {
    if (m_panel)
        return;
    m_panel = std::make_unique<RecordingPanelWidget>();
    connect(m_panel.get(), &RecordingPanelWidget::pauseClicked, this,
            &FloatingRecordingPanel::togglePause);
    connect(m_panel.get(), &RecordingPanelWidget::stopClicked, this,
            &FloatingRecordingPanel::stopRecording);
    connect(m_panel.get(), &RecordingPanelWidget::cancelClicked, this,
            &FloatingRecordingPanel::cancelPreparation);
    connect(m_panel.get(), &RecordingPanelWidget::dragged, this,
            [this](QPoint topLeft) { storePosition(topLeft); });
}

QString FloatingRecordingPanel::statusText() const {
    if (m_isStarting)
        return m_startingCountdown > 0 ? QStringLiteral("Rec in %1").arg(m_startingCountdown)
                                       : QStringLiteral("Starting...");
    return durationText(m_recordingDuration);
}

void FloatingRecordingPanel::showStarting(RecordingCoordinator& coordinator) {
    m_coordinator = &coordinator;
    m_isStarting = true;
    m_isRecording = false;
    m_isPaused = false;
    m_startingCountdown = 0;
    m_recordingDuration = 0.0;
    present();
}

void FloatingRecordingPanel::show(RecordingCoordinator& coordinator) {
    m_coordinator = &coordinator;
    m_isRecording = true;
    m_isStarting = false;
    m_isPaused = coordinator.isPaused();
    m_recordingDuration = 0.0;
    hideCountdown();
    startDurationTimer();
    present();
}

void FloatingRecordingPanel::hide() {
    stopDurationTimer();
    hideCountdown();
    if (m_panel && m_panel->isVisible()) {
        storePosition(m_panel->pos());
        m_panel->hide();
    }
    m_isVisible = false;
    m_isStarting = false;
    m_isRecording = false;
    m_isPaused = false;
    m_startingCountdown = 0;
}

void FloatingRecordingPanel::setPaused(bool paused) {
    m_isPaused = paused;
    refresh();
}

void FloatingRecordingPanel::updateStartingCountdown(int seconds) {
    m_startingCountdown = seconds;
    refresh();
    if (seconds <= 0) {
        hideCountdown();
        return;
    }
    if (!m_countdown)
        m_countdown = std::make_unique<CountdownOverlay>();
    m_countdown->showCount(seconds, recordedArea());
}

void FloatingRecordingPanel::hideCountdown() {
    if (m_countdown)
        m_countdown->hide();
}

QRect FloatingRecordingPanel::recordedArea() const {
    const QScreen* primary = QGuiApplication::primaryScreen();
    const QRect fallback = primary ? primary->geometry() : QRect(0, 0, 1280, 720);
    if (!m_coordinator || !m_coordinator->configuration())
        return fallback;
    const RecordingMode& mode = m_coordinator->configuration()->mode;
    if (const auto* screen = mode.as<RecordingMode::Screen>())
        return DesktopGeometry::toTopLeft(screen->display.frame);
    if (const auto* area = mode.as<RecordingMode::ScreenArea>()) {
        const Rect& display = area->display.frame;
        return DesktopGeometry::toTopLeft(Rect(display.origin.x + area->rect.origin.x,
                                               display.origin.y + area->rect.origin.y,
                                               area->rect.size.width, area->rect.size.height));
    }
    if (const auto* window = mode.as<RecordingMode::Window>())
        return DesktopGeometry::toTopLeft(window->window.frame);
    return fallback;
}

void FloatingRecordingPanel::present() {
    createPanel();
    refresh();
    if (!m_panel->isVisible()) {
        m_panel->adjustSize();
        positionPanel();
        m_panel->show();
    }
    m_isVisible = true;
}

void FloatingRecordingPanel::refresh() {
    if (!m_panel)
        return;
    m_panel->setStarting(m_isStarting);
    m_panel->setPaused(m_isPaused);
    m_panel->setStatus(statusText(), m_isRecording, m_isPaused);
}

void FloatingRecordingPanel::positionPanel() {
    if (m_storedPosition) {
        m_panel->move(*m_storedPosition);
        return;
    }
    // Top centre of the primary screen's free area, clear of panels and docks.
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect free = screen->availableGeometry();
    m_panel->move(free.center().x() - m_panel->width() / 2, free.top() + 24);
}

void FloatingRecordingPanel::startDurationTimer() {
    m_durationTimer.start();
}

void FloatingRecordingPanel::stopDurationTimer() {
    m_durationTimer.stop();
}

void FloatingRecordingPanel::stopRecording() {
    if (!m_coordinator)
        return;
    [](QPointer<RecordingCoordinator> coordinator) -> QCoro::Task<void> {
        try {
            co_await coordinator->stopRecording();
        } catch (const std::exception& error) {
            logLine("❌ Error stopping recording: {}", error.what());
        }
    }(m_coordinator);
}

void FloatingRecordingPanel::togglePause() {
    if (!m_coordinator)
        return;
    try {
        if (m_coordinator->isPaused())
            m_coordinator->resumeRecording();
        else
            m_coordinator->pauseRecording();
    } catch (const std::exception& error) {
        logLine("❌ Error toggling pause: {}", error.what());
    }
}

void FloatingRecordingPanel::cancelPreparation() {
    if (m_coordinator)
        m_coordinator->cancelPreparation();
    hide();
    emit preparationCancelled();
}
