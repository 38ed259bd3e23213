#include "platform/desktop/NotificationActionRouter.h"

#include "core/support/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

namespace {
const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
} // namespace

NotificationActionRouter::NotificationActionRouter(QDBusConnection session, QObject* parent)
    : QObject(parent), m_session(std::move(session)) {
    m_session.connect(service, path, service, QStringLiteral("ActionInvoked"), this,
                      SLOT(actionInvoked(uint, QString)));
    m_session.connect(service, path, service, QStringLiteral("NotificationClosed"), this,
                      SLOT(notificationClosed(uint, uint)));
}

void NotificationActionRouter::actionInvoked(uint id, const QString& action) {
    const QString file = m_files.value(id);
    if (file.isEmpty())
        return;
    if (action != QLatin1String(showInFolderAction) && action != QLatin1String("default"))
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(file).toString()} << QString();
    // Asked without waiting: the file manager may take its time to start.
    auto* watcher = new QDBusPendingCallWatcher(m_session.asyncCall(call, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [file](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                if (!finished->isError())
                    return;
                logLine("⚠️ No file manager answered ShowItems; opening the folder instead");
                QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(file).absolutePath()));
            });
}

void NotificationActionRouter::notificationClosed(uint id, uint) {
    m_files.remove(id);
}
