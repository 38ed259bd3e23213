#include "platform/desktop/DBusSystemEventMonitor.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {
const QString login1Service = QStringLiteral("org.freedesktop.login1");
const QString login1Path = QStringLiteral("/org/freedesktop/login1");
const QString login1Manager = QStringLiteral("org.freedesktop.login1.Manager");
const QString login1Session = QStringLiteral("org.freedesktop.login1.Session");
const QString screenSaverInterface = QStringLiteral("org.freedesktop.ScreenSaver");
} // namespace

DBusSystemEventMonitor::DBusSystemEventMonitor(QDBusConnection sessionBus,
                                               QDBusConnection systemBus)
    : m_session(std::move(sessionBus)), m_system(std::move(systemBus)) {}

DBusSystemEventMonitor::~DBusSystemEventMonitor() {
    remove();
}

// Signals are matched by interface and member from any sender and path: the session object's
// path is per session, and a screen saver may live under either of its customary paths.
void DBusSystemEventMonitor::install(Handler handler) {
    if (m_handler)
        remove();
    m_handler = std::move(handler);
    if (m_system.isConnected()) {
        m_system.connect(QString(), login1Path, login1Manager, QStringLiteral("PrepareForSleep"),
                         this, SLOT(prepareForSleep(bool)));
        m_system.connect(QString(), QString(), login1Session, QStringLiteral("Lock"), this,
                         SLOT(sessionLocked()));
        m_system.connect(QString(), QString(), login1Session, QStringLiteral("Unlock"), this,
                         SLOT(sessionUnlocked()));
        takeSleepDelay();
    }
    if (m_session.isConnected())
        m_session.connect(QString(), QString(), screenSaverInterface,
                          QStringLiteral("ActiveChanged"), this,
                          SLOT(screenSaverActiveChanged(bool)));
}

void DBusSystemEventMonitor::remove() {
    if (!m_handler)
        return;
    m_handler = nullptr;
    if (m_system.isConnected()) {
        m_system.disconnect(QString(), login1Path, login1Manager, QStringLiteral("PrepareForSleep"),
                            this, SLOT(prepareForSleep(bool)));
        m_system.disconnect(QString(), QString(), login1Session, QStringLiteral("Lock"), this,
                            SLOT(sessionLocked()));
        m_system.disconnect(QString(), QString(), login1Session, QStringLiteral("Unlock"), this,
                            SLOT(sessionUnlocked()));
    }
    if (m_session.isConnected())
        m_session.disconnect(QString(), QString(), screenSaverInterface,
                             QStringLiteral("ActiveChanged"), this,
                             SLOT(screenSaverActiveChanged(bool)));
    m_sleepDelay = QDBusUnixFileDescriptor();
}

void DBusSystemEventMonitor::takeSleepDelay() {
    QDBusMessage call = QDBusMessage::createMethodCall(login1Service, login1Path, login1Manager,
                                                       QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep") << QStringLiteral("tavelquiston")
         << QStringLiteral("Pausing the recording") << QStringLiteral("delay");
    // Asynchronous: a machine without logind answers with an error we only ignore.
    auto* watcher = new QDBusPendingCallWatcher(m_system.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* finished) {
                QDBusPendingReply<QDBusUnixFileDescriptor> reply = *finished;
                if (m_handler && !reply.isError())
                    m_sleepDelay = reply.value();
                finished->deleteLater();
            });
}

void DBusSystemEventMonitor::deliver(Event event) {
    if (m_handler)
        m_handler(event);
}

void DBusSystemEventMonitor::prepareForSleep(bool sleeping) {
    if (sleeping) {
        deliver(Event::willSleep);
        // The recording has paused: the machine may go.
        m_sleepDelay = QDBusUnixFileDescriptor();
        return;
    }
    deliver(Event::didWake);
    if (m_handler && m_system.isConnected())
        takeSleepDelay();
}

void DBusSystemEventMonitor::sessionLocked() {
    deliver(Event::sessionDidResignActive);
}

void DBusSystemEventMonitor::sessionUnlocked() {
    deliver(Event::sessionDidBecomeActive);
}

void DBusSystemEventMonitor::screenSaverActiveChanged(bool active) {
    deliver(active ? Event::screensDidSleep : Event::screensDidWake);
}
