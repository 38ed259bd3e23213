// A stand-in for the desktop's ScreenCast portal on a private session bus: the documented
// org.freedesktop.portal.ScreenCast, Request and Session interfaces, sharing one PipeWire node
// of a test daemon. Run by tests only:
//   screencast_portal_standin --node ID --width W --height H --pipewire-socket PATH
//       [--refuse] [--share-window] [--require-token TOKEN] [--close-after-ms N] [--cursor-modes
//       MASK]
//       [--log FILE]
// Prints "ready" once it owns org.freedesktop.portal.Desktop.

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QDBusVirtualObject>
#include <QFile>
#include <QSet>
#include <QTimer>
#include <QUuid>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>

namespace {

const QString basePath = QStringLiteral("/org/freedesktop/portal/desktop");

struct IntPair {
    int first = 0;
    int second = 0;
};
QDBusArgument& operator<<(QDBusArgument& argument, const IntPair& pair) {
    argument.beginStructure();
    argument << pair.first << pair.second;
    argument.endStructure();
    return argument;
}
const QDBusArgument& operator>>(const QDBusArgument& argument, IntPair& pair) {
    argument.beginStructure();
    argument >> pair.first >> pair.second;
    argument.endStructure();
    return argument;
}

struct StreamEntry {
    uint node = 0;
    QVariantMap properties;
};
QDBusArgument& operator<<(QDBusArgument& argument, const StreamEntry& entry) {
    argument.beginStructure();
    argument << entry.node << entry.properties;
    argument.endStructure();
    return argument;
}
const QDBusArgument& operator>>(const QDBusArgument& argument, StreamEntry& entry) {
    argument.beginStructure();
    argument >> entry.node >> entry.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(IntPair)
Q_DECLARE_METATYPE(StreamEntry)

namespace {

struct Settings {
    uint node = 0;
    int width = 0;
    int height = 0;
    QString pipewireSocket;
    bool refuse = false;
    bool shareWindow = false; // the user picks a window rather than a monitor
    QString requiredToken;
    int closeAfterMs = -1;
    uint cursorModes = 7;
    QString logPath;
};

class Portal final : public QDBusVirtualObject {
public:
    explicit Portal(Settings settings) : m_settings(std::move(settings)) {}

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const QString interface = message.interface();
        const QString member = message.member();
        if (interface == QLatin1String("org.freedesktop.DBus.Properties"))
            return properties(message, connection);
        if (interface == QLatin1String("org.freedesktop.portal.Session") &&
            member == QLatin1String("Close")) {
            log(QStringLiteral("Close"));
            m_sessions.remove(message.path());
            connection.send(message.createReply());
            return true;
        }
        if (interface != QLatin1String("org.freedesktop.portal.ScreenCast"))
            return false;
        const QList<QVariant> args = message.arguments();
        if (member == QLatin1String("CreateSession")) {
            const QVariantMap options = qdbus_cast<QVariantMap>(args.value(0));
            const QString session = objectPath(message, QStringLiteral("session"),
                                               options.value("session_handle_token").toString());
            m_sessions.insert(session);
            log(QStringLiteral("CreateSession"));
            respond(message, connection, options, 0, {{"session_handle", session}});
            return true;
        }
        const QString session = args.value(0).value<QDBusObjectPath>().path();
        if (!m_sessions.contains(session)) {
            connection.send(message.createErrorReply(
                QStringLiteral("org.freedesktop.portal.Error.NotFound"), "no such session"));
            return true;
        }
        if (member == QLatin1String("SelectSources")) {
            const QVariantMap options = qdbus_cast<QVariantMap>(args.value(1));
            m_selection = options;
            log(QStringLiteral("SelectSources types=%1 cursor_mode=%2 persist_mode=%3 "
                               "restore_token=%4")
                    .arg(options.value("types").toUInt())
                    .arg(options.value("cursor_mode").toUInt())
                    .arg(options.value("persist_mode").toUInt())
                    .arg(options.value("restore_token").toString()));
            respond(message, connection, options, 0, {});
            return true;
        }
        if (member == QLatin1String("Start")) {
            const QVariantMap options = qdbus_cast<QVariantMap>(args.value(2));
            // Without a user to ask, only a session restored by its token may start.
            const bool restored =
                !m_settings.requiredToken.isEmpty() &&
                m_selection.value("restore_token").toString() == m_settings.requiredToken;
            if (m_settings.refuse || (!m_settings.requiredToken.isEmpty() && !restored)) {
                log(QStringLiteral("Start refused"));
                respond(message, connection, options, 1, {});
                return true;
            }
            StreamEntry stream;
            stream.node = m_settings.node;
            stream.properties = {
                {"position", QVariant::fromValue(IntPair{0, 0})},
                {"size", QVariant::fromValue(IntPair{m_settings.width, m_settings.height})},
                {"source_type", m_settings.shareWindow ? uint(2) : uint(1)}};
            QVariantMap results{{"streams", QVariant::fromValue(QList<StreamEntry>{stream})}};
            if (m_selection.value("persist_mode").toUInt() == 2)
                results.insert("restore_token", QUuid::createUuid().toString(QUuid::WithoutBraces));
            log(QStringLiteral("Start"));
            respond(message, connection, options, 0, results);
            if (m_settings.closeAfterMs >= 0) {
                QTimer::singleShot(m_settings.closeAfterMs, [this, session, connection] {
                    if (!m_sessions.remove(session))
                        return;
                    log(QStringLiteral("Closed"));
                    QDBusMessage closed = QDBusMessage::createSignal(
                        session, QStringLiteral("org.freedesktop.portal.Session"),
                        QStringLiteral("Closed"));
                    closed << QVariantMap();
                    QDBusConnection(connection).send(closed);
                });
            }
            return true;
        }
        if (member == QLatin1String("OpenPipeWireRemote")) {
            const int fd = connectToPipeWire();
            if (fd < 0) {
                connection.send(message.createErrorReply(
                    QStringLiteral("org.freedesktop.portal.Error.Failed"), "no PipeWire"));
                return true;
            }
            log(QStringLiteral("OpenPipeWireRemote"));
            connection.send(message.createReply(QVariant::fromValue(QDBusUnixFileDescriptor(fd))));
            ::close(fd);
            return true;
        }
        return false;
    }

private:
    bool properties(const QDBusMessage& message, const QDBusConnection& connection) {
        const QVariantMap all{{"version", uint(4)},
                              {"AvailableSourceTypes", uint(3)},
                              {"AvailableCursorModes", m_settings.cursorModes}};
        if (message.member() == QLatin1String("GetAll")) {
            connection.send(message.createReply(QVariant::fromValue(all)));
            return true;
        }
        const QString name = message.arguments().value(1).toString();
        if (!all.contains(name)) {
            connection.send(message.createErrorReply(
                QStringLiteral("org.freedesktop.DBus.Error.UnknownProperty"), name));
            return true;
        }
        connection.send(message.createReply(QVariant::fromValue(QDBusVariant(all.value(name)))));
        return true;
    }

    // Request and session objects live under the caller's unique name and its own token.
    static QString objectPath(const QDBusMessage& message, const QString& kind,
                              const QString& token) {
        QString sender = message.service().mid(1);
        sender.replace(QLatin1Char('.'), QLatin1Char('_'));
        return basePath + QLatin1Char('/') + kind + QLatin1Char('/') + sender + QLatin1Char('/') +
               token;
    }

    void respond(const QDBusMessage& message, const QDBusConnection& connection,
                 const QVariantMap& options, uint response, const QVariantMap& results) {
        const QString request = objectPath(message, QStringLiteral("request"),
                                           options.value("handle_token").toString());
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
        QDBusMessage signal = QDBusMessage::createSignal(
            request, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
        signal << response << results;
        QDBusConnection(connection).send(signal);
    }

    int connectToPipeWire() const {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = m_settings.pipewireSocket.toLocal8Bit();
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.constData());
        if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            if (fd >= 0)
                ::close(fd);
            return -1;
        }
        return fd;
    }

    void log(const QString& line) const {
        if (m_settings.logPath.isEmpty())
            return;
        QFile file(m_settings.logPath);
        if (file.open(QIODevice::Append | QIODevice::Text))
            file.write(line.toUtf8() + '\n');
    }

    Settings m_settings;
    QSet<QString> m_sessions;
    QVariantMap m_selection;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<IntPair>();
    qDBusRegisterMetaType<StreamEntry>();
    qDBusRegisterMetaType<QList<StreamEntry>>();

    Settings settings;
    const QStringList args = app.arguments();
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString& option = args[i];
        const QString value = args.value(i + 1);
        if (option == QLatin1String("--refuse")) {
            settings.refuse = true;
            continue;
        }
        if (option == QLatin1String("--share-window")) {
            settings.shareWindow = true;
            continue;
        }
        ++i;
        if (option == QLatin1String("--node"))
            settings.node = value.toUInt();
        else if (option == QLatin1String("--width"))
            settings.width = value.toInt();
        else if (option == QLatin1String("--height"))
            settings.height = value.toInt();
        else if (option == QLatin1String("--pipewire-socket"))
            settings.pipewireSocket = value;
        else if (option == QLatin1String("--require-token"))
            settings.requiredToken = value;
        else if (option == QLatin1String("--close-after-ms"))
            settings.closeAfterMs = value.toInt();
        else if (option == QLatin1String("--cursor-modes"))
            settings.cursorModes = value.toUInt();
        else if (option == QLatin1String("--log"))
            settings.logPath = value;
        else {
            std::fprintf(stderr, "unknown option %s\n", qPrintable(option));
            return 2;
        }
    }

    QDBusConnection bus = QDBusConnection::sessionBus();
    Portal portal(settings);
    if (!bus.registerVirtualObject(basePath, &portal, QDBusConnection::SubPath) ||
        !bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"))) {
        std::fprintf(stderr, "cannot own the portal's name: %s\n",
                     qPrintable(bus.lastError().message()));
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
