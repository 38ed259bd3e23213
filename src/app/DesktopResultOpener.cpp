#include "app/DesktopResultOpener.h"

#include "app/PreviewWindow.h"
#include "core/support/Log.h"
#include "core/support/NotificationManager.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

namespace {
QString localPath(const QString& url) {
    const QUrl parsed(url);
    return parsed.isLocalFile() ? parsed.toLocalFile() : url;
}
} // namespace

void DesktopResultOpener::openTrimmer(const QString& videoURL) {
    const QString path = localPath(videoURL);
    NotificationManager::shared().sendCompletionNotification(path);
    if (m_trimmerOpener) {
        m_trimmerOpener(path);
        return;
    }
    auto* preview = new PreviewWindow(path);
    preview->show();
    preview->raise();
}

void DesktopResultOpener::openURL(const QString& url) {
    const QString path = localPath(url);
    NotificationManager::shared().sendCompletionNotification(path);
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void DesktopResultOpener::activateFileViewerSelecting(const QString& url) {
    showInFileManager(localPath(url));
}

void DesktopResultOpener::showInFileManager(const QString& path) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, 5000),
                                                QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [path](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         if (!finished->isError())
                             return;
                         // No file manager on the bus: the folder opens in whatever the desktop
                         // uses.
                         logLine("⚠️ No file manager answered ShowItems; opening the folder "
                                 "instead");
                         QDesktopServices::openUrl(
                             QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
                     });
}
