#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantMap>

// The desktop's notification service and file manager, as far as the test needs them.
class FakeNotificationServer final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QStringList actions;
    QString summary;
public slots:
    uint Notify(const QString&, uint, const QString&, const QString& title, const QString&,
                const QStringList& actionList, const QVariantMap&, int) {
        summary = title;
        actions = actionList;
        return 42;
    }
};

class FakeFileManager final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;
public slots:
    void ShowItems(const QStringList& uris, const QString&) { shown = uris; }
};
