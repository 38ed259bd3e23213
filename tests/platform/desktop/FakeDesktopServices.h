#pragma once

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QThread>
#include <QVariantMap>

#include <unistd.h>

// Small stand-ins for the desktop's D-Bus services, registered on a private bus. Each lives on
// a thread of its own so that a blocking call from the test thread can still be answered.
// Everything they receive is recorded under a lock.

class FakeScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    mutable QMutex mutex;
    QStringList inhibits; // "application|reason"
    QList<uint> uninhibits;

public slots:
    uint Inhibit(const QString& application, const QString& reason) {
        QMutexLocker lock(&mutex);
        inhibits << application + "|" + reason;
        return 1000 + uint(inhibits.size());
    }
    void UnInhibit(uint cookie) {
        QMutexLocker lock(&mutex);
        uninhibits << cookie;
    }
};

class FakeLogind : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")
public:
    mutable QMutex mutex;
    QStringList inhibits; // "what|who|why|mode"
    int readEnd = -1;     // sees end of file once every copy of the write end is closed

public slots:
    QDBusUnixFileDescriptor Inhibit(const QString& what, const QString& who, const QString& why,
                                    const QString& mode) {
        QMutexLocker lock(&mutex);
        inhibits << what + "|" + who + "|" + why + "|" + mode;
        int fds[2];
        if (::pipe(fds) != 0)
            return {};
        readEnd = fds[0];
        QDBusUnixFileDescriptor descriptor(fds[1]); // duplicates
        ::close(fds[1]);
        return descriptor;
    }
};

class FakeNotifications : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Call {
        QString application, summary, body;
        QVariantMap hints;
        int timeout = 0;
    };
    mutable QMutex mutex;
    QList<Call> calls;
    int capabilityRequests = 0;

public slots:
    QStringList GetCapabilities() {
        QMutexLocker lock(&mutex);
        ++capabilityRequests;
        return {"body"};
    }
    uint Notify(const QString& application, uint, const QString&, const QString& summary,
                const QString& body, const QStringList&, const QVariantMap& hints, int timeout) {
        QMutexLocker lock(&mutex);
        calls << Call{application, summary, body, hints, timeout};
        return uint(calls.size());
    }
};

// Serves one fake object under a well-known name on a bus, from a thread of its own.
class FakeServiceHost {
public:
    FakeServiceHost(const QString& address, const QString& service, const QString& path,
                    QObject* object)
        : m_name("fake-" + service), m_object(object) {
        m_thread.start();
        m_object->moveToThread(&m_thread);
        QDBusConnection connection = QDBusConnection::connectToBus(address, m_name);
        m_ok = connection.isConnected() && connection.registerService(service) &&
               connection.registerObject(path, m_object, QDBusConnection::ExportAllSlots);
    }
    ~FakeServiceHost() {
        QDBusConnection::disconnectFromBus(m_name);
        m_thread.quit();
        m_thread.wait(5000);
    }
    bool ok() const { return m_ok; }

private:
    QString m_name;
    QObject* m_object;
    QThread m_thread;
    bool m_ok = false;
};
