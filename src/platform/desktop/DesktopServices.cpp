#include "platform/desktop/DesktopServices.h"

#include "core/support/KeyboardShortcutHandler.h"
#include "core/support/NotificationManager.h"
#include "core/support/SleepPreventer.h"
#include "platform/desktop/ApplicationKeyEventMonitor.h"
#include "platform/desktop/DBusNotificationBackend.h"
#include "platform/desktop/DBusPowerAssertionBackend.h"
#include "platform/desktop/DBusSystemEventMonitor.h"

void installDesktopServices() {
    SleepPreventer::setSharedBackend(std::make_unique<DBusPowerAssertionBackend>(
        QDBusConnection::sessionBus(), QDBusConnection::systemBus()));
    SystemEventMonitor::setShared(std::make_unique<DBusSystemEventMonitor>(
        QDBusConnection::sessionBus(), QDBusConnection::systemBus()));
    NotificationManager::setSharedBackend(
        std::make_unique<DBusNotificationBackend>(QDBusConnection::sessionBus()));
    KeyboardShortcutHandler::shared().setMonitorFactory([](KeyEventMonitor::Callback callback) {
        return std::make_unique<ApplicationKeyEventMonitor>(std::move(callback));
    });
}
