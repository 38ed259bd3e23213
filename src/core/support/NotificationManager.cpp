#include "core/support/NotificationManager.h"

#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/support/Log.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTimer>
#include <QUuid>

namespace {
class UnavailableNotificationBackend final : public NotificationBackend {
public:
    void requestAuthorization(Completion completion) override {
        completion(QStringLiteral("no notification service"));
    }
    void post(const NotificationRequest&, Completion completion) override {
        completion(QStringLiteral("no notification service"));
    }
};

QString text(std::string_view value) {
    return QString::fromUtf8(value.data(), qsizetype(value.size()));
}
} // namespace

NotificationManager& NotificationManager::shared() {
    static NotificationManager manager(std::make_unique<UnavailableNotificationBackend>());
    return manager;
}

void NotificationManager::setSharedBackend(std::unique_ptr<NotificationBackend> backend) {
    NotificationManager& manager = shared();
    manager.m_backend =
        backend ? std::move(backend) : std::make_unique<UnavailableNotificationBackend>();
    manager.m_liveBackend = std::make_shared<NotificationBackend*>(manager.m_backend.get());
}

NotificationManager::NotificationManager(std::unique_ptr<NotificationBackend> backend)
    : m_backend(std::move(backend)),
      m_liveBackend(std::make_shared<NotificationBackend*>(m_backend.get())) {}

void NotificationManager::requestAuthorization(std::function<void(bool)> completion) {
    m_backend->requestAuthorization(
        [this, completion = std::move(completion)](std::optional<QString> error) {
            m_isAuthorized = !error.has_value();
            if (error)
                logLine("Notification authorization error: {}", error->toStdString());
            if (completion)
                completion(m_isAuthorized);
        });
}

void NotificationManager::deliver(NotificationRequest request) {
    // Sent a moment later, as a time-interval trigger would, so a notification never lands in
    // the middle of the window change that caused it.
    std::weak_ptr<NotificationBackend*> backend = m_liveBackend;
    QTimer::singleShot(m_deliveryDelayMs, QCoreApplication::instance(),
                       [backend, request = std::move(request)] {
                           const auto live = backend.lock();
                           if (!live)
                               return; // the manager is gone, and with it the reason to notify
                           (*live)->post(request, [](std::optional<QString> error) {
                               if (error)
                                   logLine("Failed to send notification: {}", error->toStdString());
                           });
                       });
}

void NotificationManager::sendCompletionNotification(const QString& fileURL) {
    deliver({text(Constants::NotificationID::recordingCompleted),
             QStringLiteral("Recording Completed"),
             QStringLiteral("File saved to: ") + QFileInfo(fileURL).fileName(), false, fileURL});
}

void NotificationManager::sendErrorNotification(const RecordingError& error) {
    deliver({text(Constants::NotificationID::recordingFailed), QStringLiteral("Recording Failed"),
             error.localizedDescription(), false});
}

void NotificationManager::sendPermissionNotification(PermissionType type) {
    deliver({text(Constants::NotificationID::permissionRequired),
             QStringLiteral("Permission Required"),
             QStringLiteral("tavelquiston needs ") + displayName(type) +
                 QStringLiteral(" permission to continue"),
             false});
}

void NotificationManager::sendDiskSpaceWarning() {
    deliver({text(Constants::NotificationID::diskSpaceWarning), QStringLiteral("Low Disk Space"),
             QStringLiteral("Your disk is running low on space. Recording may fail."), false});
}

void NotificationManager::sendNotification(const QString& title, const QString& body, bool sound) {
    deliver({QStringLiteral("tavelquiston.notification.") +
                 QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(),
             title, body, sound});
}
