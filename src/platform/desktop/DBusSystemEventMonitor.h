#pragma once

#include "core/support/SystemEventMonitor.h"

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>

// The desktop's events over D-Bus: logind's PrepareForSleep on the system bus (with a delay
// inhibitor, so that a recording can pause before the machine sleeps), the sessions' Lock and
// Unlock, and the screen saver's ActiveChanged on the session bus. A bus that is absent simply
// sends nothing. Thread: main.
class DBusSystemEventMonitor final : public QObject, public SystemEventMonitor {
    Q_OBJECT

public:
    DBusSystemEventMonitor(QDBusConnection sessionBus, QDBusConnection systemBus);
    ~DBusSystemEventMonitor() override;

    void install(Handler handler) override;
    void remove() override;

    bool holdsSleepDelay() const { return m_sleepDelay.isValid(); }

private slots:
    void prepareForSleep(bool sleeping);
    void sessionLocked();
    void sessionUnlocked();
    void screenSaverActiveChanged(bool active);

private:
    void deliver(Event event);
    void takeSleepDelay();

    QDBusConnection m_session;
    QDBusConnection m_system;
    Handler m_handler;
    // While held, logind waits for us (up to its InhibitDelayMaxSec) before suspending.
    QDBusUnixFileDescriptor m_sleepDelay;
};
