#pragma once

#include "core/support/NotificationManager.h"

#include <QDBusConnection>

#include <memory>

class NotificationActionRouter;

// Posts notifications to org.freedesktop.Notifications on the session bus. The program's own
// identifier travels as the "x-tavelquiston-id" hint. Thread: main; replies arrive on the main
// thread without blocking it.
class DBusNotificationBackend final : public NotificationBackend {
public:
    explicit DBusNotificationBackend(QDBusConnection sessionBus);
    ~DBusNotificationBackend() override;

    void requestAuthorization(Completion completion) override;
    void post(const NotificationRequest& request, Completion completion) override;

private:
    QDBusConnection m_session;
    std::unique_ptr<NotificationActionRouter> m_actions;
};
