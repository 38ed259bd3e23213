#include "platform/desktop/DBusNotificationBackend.h"

#include "platform/desktop/NotificationActionRouter.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace {
const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");

void whenAnswered(const QDBusPendingCall& call, NotificationBackend::Completion completion) {
    auto* watcher = new QDBusPendingCallWatcher(call, QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [completion = std::move(completion)](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         if (finished->isError())
                             completion(finished->error().name() + QStringLiteral(": ") +
                                        finished->error().message());
                         else
                             completion(std::nullopt);
                     });
}
} // namespace

DBusNotificationBackend::DBusNotificationBackend(QDBusConnection sessionBus)
    : m_session(std::move(sessionBus)),
      m_actions(std::make_unique<NotificationActionRouter>(m_session)) {}

DBusNotificationBackend::~DBusNotificationBackend() = default;

void DBusNotificationBackend::requestAuthorization(Completion completion) {
    // The desktop has no consent step: a notification service that answers is permission.
    const QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, service, QStringLiteral("GetCapabilities"));
    whenAnswered(m_session.asyncCall(call), std::move(completion));
}

void DBusNotificationBackend::post(const NotificationRequest& request, Completion completion) {
    QVariantMap hints;
    hints.insert(QStringLiteral("x-tavelquiston-id"), request.identifier);
    if (request.sound)
        hints.insert(QStringLiteral("sound-name"), QStringLiteral("message-new-instant"));
    else
        hints.insert(QStringLiteral("suppress-sound"), true);

    // A notification about a file offers to show it.
    QStringList actions;
    if (!request.fileURL.isEmpty())
        actions << QStringLiteral("default") << QStringLiteral("Show in Folder")
                << QString::fromLatin1(NotificationActionRouter::showInFolderAction)
                << QStringLiteral("Show in Folder");
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, service, QStringLiteral("Notify"));
    call << QStringLiteral("tavelquiston") << uint(0) << QString() << request.title << request.body
         << actions << hints << int(-1);
    const QDBusPendingCall pending = m_session.asyncCall(call);
    if (!request.fileURL.isEmpty()) {
        auto* watcher = new QDBusPendingCallWatcher(pending, m_actions.get());
        QObject::connect(
            watcher, &QDBusPendingCallWatcher::finished, m_actions.get(),
            [router = m_actions.get(), file = request.fileURL](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusPendingReply<uint> reply = *finished;
                if (!reply.isError())
                    router->remember(reply.value(), file);
            });
    }
    whenAnswered(pending, std::move(completion));
}
