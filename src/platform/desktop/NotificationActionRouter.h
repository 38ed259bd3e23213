#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QString>

// Answers the buttons of our notifications: "Show in Folder" (and a click on the notification
// itself) shows the recorded file in the desktop's file manager, or opens its folder where no
// file manager takes the request. Thread: main.
class NotificationActionRouter final : public QObject {
    Q_OBJECT
public:
    static constexpr const char* showInFolderAction = "show-in-folder";

    explicit NotificationActionRouter(QDBusConnection session, QObject* parent = nullptr);

    // The notification `id` the service gave back is about `fileURL`.
    void remember(uint id, const QString& fileURL) { m_files.insert(id, fileURL); }

private slots:
    void actionInvoked(uint id, const QString& action);
    void notificationClosed(uint id, uint reason);

private:
    QDBusConnection m_session;
    QHash<uint, QString> m_files;
};
