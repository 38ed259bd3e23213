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
    m_monitor.install([self = std::weak_ptr(m_self)](SystemEventMonitor::Event event) {
        if (const auto responder = self.lock())
            (*responder)->handle(event);
    });
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
