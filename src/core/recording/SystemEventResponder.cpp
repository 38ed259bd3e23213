#include "core/recording/SystemEventResponder.h"

#include "core/recording/RecordingClock.h"
#include "core/support/Log.h"
#include "core/support/NotificationManager.h"

SystemEventResponder::SystemEventResponder(SystemEventMonitor& monitor,
                                           NotificationManager& notifications,
                                           RecordingClock& clock, Hooks hooks)
    : m_monitor(monitor), m_notifications(notifications), m_clock(clock),
      m_hooks(std::move(hooks)) {}

void SystemEventResponder::install() {
    if (m_installed)
        return;
    m_installed = true;
    m_pausedForSleep = false;
    // The monitor is removed before this responder goes, so `this` outlives every call.
    m_monitor.install([this](SystemEventMonitor::Event event) { handle(event); });
}

void SystemEventResponder::remove() {
    if (!m_installed)
        return;
    m_installed = false;
    m_monitor.remove();
}

void SystemEventResponder::handle(SystemEventMonitor::Event event) {
    logLine("🛰️ System event: {} at {}", systemEventLabel(event).toStdString(),
            m_clock.now().toString(Qt::ISODateWithMs).toStdString());
    if (event == SystemEventMonitor::Event::willSleep && m_hooks.canPause()) {
        m_hooks.pause();
        m_pausedForSleep = true;
        logLine("⏸️ Recording paused because the computer is going to sleep");
    } else if (event == SystemEventMonitor::Event::didWake && m_pausedForSleep) {
        m_pausedForSleep = false;
        m_notifications.sendNotification(
            QStringLiteral("Recording Paused"),
            QStringLiteral("The recording was paused while the computer slept. Resume it when "
                           "you are ready."));
    }
}
