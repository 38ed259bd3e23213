#pragma once

#include "core/model/PermissionType.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

class RecordingError;

// A notification as the desktop shows it.
struct NotificationRequest {
    QString identifier;
    QString title;
    QString body;
    bool sound = false;
    // The file the notification is about, when there is one: the desktop offers to show it.
    QString fileURL = {};
    bool operator==(const NotificationRequest&) const = default;
};

// Delivers notifications to the desktop's notification service. Thread: main; completions run
// on the main thread.
class NotificationBackend {
public:
    // Empty error on success.
    using Completion = std::function<void(std::optional<QString> error)>;
    virtual ~NotificationBackend() = default;
    virtual void requestAuthorization(Completion completion) = 0;
    virtual void post(const NotificationRequest& request, Completion completion) = 0;
};

class NotificationManager {
public:
    static NotificationManager& shared();
    static void setSharedBackend(std::unique_ptr<NotificationBackend> backend);

    explicit NotificationManager(std::unique_ptr<NotificationBackend> backend);

    // Every notification is delivered this long after it is sent (one second).
    void setDeliveryDelay(int milliseconds) { m_deliveryDelayMs = milliseconds; }

    void requestAuthorization(std::function<void(bool granted)> completion = {});
    void sendCompletionNotification(const QString& fileURL);
    void sendErrorNotification(const RecordingError& error);
    void sendPermissionNotification(PermissionType type);
    void sendDiskSpaceWarning();
    void sendNotification(const QString& title, const QString& body, bool sound = true);

    bool isAuthorized() const { return m_isAuthorized; }

private:
    void deliver(NotificationRequest request);

    std::unique_ptr<NotificationBackend> m_backend;
    // Delayed deliveries hold this weakly, so a manager may go away with sends still pending.
    std::shared_ptr<NotificationBackend*> m_liveBackend;
    bool m_isAuthorized = false;
    int m_deliveryDelayMs = 1000;
};
