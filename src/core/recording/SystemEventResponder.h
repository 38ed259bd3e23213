#pragma once

#include "core/support/SystemEventMonitor.h"

#include <functional>
#include <memory>

class NotificationManager;
class RecordingClock;

// Listens to the desktop's events while a recording runs: logs each, pauses the recording
// before the machine sleeps, and tells the person after it wakes that the recording waits for
// them. A recording that ran across a suspend would otherwise hold a frozen picture for as long
// as the machine slept. Thread: main.
class SystemEventResponder {
public:
    struct Hooks {
        // True while a running (not paused, not stopping) recording could be paused.
        std::function<bool()> canPause;
        std::function<void()> pause;
    };

    SystemEventResponder(SystemEventMonitor& monitor, NotificationManager& notifications,
                         RecordingClock& clock, Hooks hooks);
    SystemEventResponder(const SystemEventResponder&) = delete;
    SystemEventResponder& operator=(const SystemEventResponder&) = delete;

    // Idempotent both ways.
    void install();
    void remove();

    void handle(SystemEventMonitor::Event event);

private:
    SystemEventMonitor& m_monitor;
    NotificationManager& m_notifications;
    RecordingClock& m_clock;
    Hooks m_hooks;
    bool m_installed = false;
    bool m_pausedForSleep = false;
    // The monitor may outlive this responder (and this may outlive the monitor): its handler
    // reaches back only while this token lives.
    std::shared_ptr<SystemEventResponder*> m_self = std::make_shared<SystemEventResponder*>(this);
};
