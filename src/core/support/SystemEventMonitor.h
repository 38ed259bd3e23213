#pragma once

#include <QString>

#include <functional>
#include <memory>

// The desktop's own events a recording cares about: displays asleep or awake, the session
// locked or unlocked, the screens rearranged, and the machine about to sleep or back from it.
// Thread: main; the handler is called on the main thread.
class SystemEventMonitor {
public:
    enum class Event {
        screensDidSleep,
        screensDidWake,
        sessionDidResignActive,
        sessionDidBecomeActive,
        activeSpaceDidChange,
        didChangeScreenParameters,
        // Before the machine suspends. The desktop waits (briefly) for the handler to return,
        // so a recording can pause first.
        willSleep,
        didWake,
    };
    using Handler = std::function<void(Event event)>;

    virtual ~SystemEventMonitor() = default;
    virtual void install(Handler handler) = 0;
    virtual void remove() = 0;

    // The monitor the coordinator uses when none is given: one that hears nothing until the
    // desktop installs its own.
    static SystemEventMonitor& shared();
    static void setShared(std::unique_ptr<SystemEventMonitor> monitor);
};

QString systemEventLabel(SystemEventMonitor::Event event);
