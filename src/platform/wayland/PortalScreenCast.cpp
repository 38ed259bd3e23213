#include "platform/wayland/PortalScreenCast.h"

#include "core/model/RecordingError.h"
#include "core/support/Log.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <unistd.h>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString screenCastInterface = QStringLiteral("org.freedesktop.portal.ScreenCast");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");

constexpr uint cursorEmbedded = 2;
constexpr uint cursorMetadata = 4;
constexpr uint persistUntilRevoked = 2;

// A property of the ScreenCast portal, or an invalid variant when nobody answers.
QVariant portalProperty(const QDBusConnection& bus, const QString& name,
                        std::chrono::milliseconds timeout) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    message << screenCastInterface << name;
    const QDBusMessage reply = bus.call(message, QDBus::Block, int(timeout.count()));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().first().value<QDBusVariant>().variant();
}

// "(ii)" as the portal sends positions and sizes.
std::optional<std::pair<int, int>> intPair(const QVariant& value) {
    if (!value.canConvert<QDBusArgument>())
        return std::nullopt;
    const QDBusArgument argument = value.value<QDBusArgument>();
    int first = 0, second = 0;
    argument.beginStructure();
    argument >> first >> second;
    argument.endStructure();
    return std::pair(first, second);
}

std::vector<PortalStream> parseStreams(const QVariant& value) {
    std::vector<PortalStream> streams;
    if (!value.canConvert<QDBusArgument>())
        return streams;
    const QDBusArgument argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        PortalStream stream;
        QVariantMap properties;
        argument.beginStructure();
        argument >> stream.nodeID >> properties;
        argument.endStructure();
        if (const auto position = intPair(properties.value(QStringLiteral("position"))))
            stream.position = QPoint(position->first, position->second);
        if (const auto size = intPair(properties.value(QStringLiteral("size"))))
            stream.size = QSize(size->first, size->second);
        if (properties.contains(QStringLiteral("source_type")))
            stream.sourceType = properties.value(QStringLiteral("source_type")).toUInt();
        streams.push_back(stream);
    }
    argument.endArray();
    return streams;
}

} // namespace

std::optional<uint32_t> PortalScreenCast::availableSourceTypes(const QDBusConnection& bus,
                                                               std::chrono::milliseconds timeout) {
    if (!bus.isConnected())
        return std::nullopt;
    const QVariant types = portalProperty(bus, QStringLiteral("AvailableSourceTypes"), timeout);
    if (!types.isValid())
        return std::nullopt;
    return types.toUInt();
}

PortalScreenCast::PortalScreenCast(QDBusConnection bus) : m_bus(std::move(bus)) {}

PortalScreenCast::~PortalScreenCast() {
    close();
}

QString PortalScreenCast::newToken() {
    return QStringLiteral("tavelquiston%1_%2")
        .arg(QCoreApplication::applicationPid())
        .arg(++m_tokenCounter);
}

QString PortalScreenCast::senderPath() const {
    // ":1.42" becomes "1_42", as the portal names request and session objects.
    QString sender = m_bus.baseService();
    if (sender.startsWith(QLatin1Char(':')))
        sender.remove(0, 1);
    return sender.replace(QLatin1Char('.'), QLatin1Char('_'));
}

void PortalScreenCast::onResponse(uint response, const QVariantMap& results) {
    m_response = response;
    m_results = results;
    if (m_waiting)
        m_waiting->quit();
}

void PortalScreenCast::onSessionClosed(const QVariantMap&) {
    if (m_closed.exchange(true))
        return;
    logLine("⚠️ The desktop ended the screen cast session");
    std::function<void()> handler;
    {
        std::lock_guard lock(m_closedMutex);
        handler = m_closedHandler;
    }
    if (handler)
        handler();
}

void PortalScreenCast::setClosedHandler(std::function<void()> handler) {
    std::lock_guard lock(m_closedMutex);
    m_closedHandler = std::move(handler);
}

QVariantMap PortalScreenCast::request(const QString& method, const QList<QVariant>& arguments,
                                      const QString& token, std::chrono::milliseconds timeout) {
    // Listen on the request's path before asking, so a quick answer cannot be missed.
    const QString expected =
        portalPath + QStringLiteral("/request/") + senderPath() + QLatin1Char('/') + token;
    auto listen = [&](const QString& path) {
        m_bus.connect(portalService, path, requestInterface, QStringLiteral("Response"), this,
                      SLOT(onResponse(uint, QVariantMap)));
    };
    auto stopListening = [&](const QString& path) {
        m_bus.disconnect(portalService, path, requestInterface, QStringLiteral("Response"), this,
                         SLOT(onResponse(uint, QVariantMap)));
    };
    m_response.reset();
    m_results.clear();
    listen(expected);

    QDBusMessage message =
        QDBusMessage::createMethodCall(portalService, portalPath, screenCastInterface, method);
    message.setArguments(arguments);
    const QDBusMessage reply = m_bus.call(message, QDBus::Block, int(timeout.count()));
    if (reply.type() != QDBusMessage::ReplyMessage) {
        stopListening(expected);
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The screen cast portal refused %1: %2")
                .arg(method, reply.errorMessage()));
    }
    // Older portals choose the path themselves.
    const QString handle = reply.arguments().value(0).value<QDBusObjectPath>().path();
    if (!handle.isEmpty() && handle != expected)
        listen(handle);

    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(timeout);
    m_waiting = &loop;
    if (!m_response)
        loop.exec();
    m_waiting = nullptr;
    stopListening(expected);
    if (!handle.isEmpty() && handle != expected)
        stopListening(handle);

    if (!m_response)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The screen cast portal did not answer %1 within %2 s")
                .arg(method)
                .arg(double(timeout.count()) / 1000.0));
    if (*m_response == 1)
        throw RecordingError::permissionDenied(PermissionType::screenRecording);
    if (*m_response != 0)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The screen cast portal could not %1").arg(method));
    return m_results;
}

void PortalScreenCast::start(const Options& options) {
    const auto version = portalProperty(m_bus, QStringLiteral("version"), options.requestTimeout);
    if (!version.isValid())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("No Wayland screen cast portal (org.freedesktop.portal.ScreenCast) on "
                           "the session bus"));
    // Only what this desktop can share is asked for.
    const uint sourceTypes =
        portalProperty(m_bus, QStringLiteral("AvailableSourceTypes"), options.requestTimeout)
            .toUInt();
    const uint wantedTypes = (sourceTypes & options.sourceTypes) != 0
                                 ? (sourceTypes & options.sourceTypes)
                                 : options.sourceTypes;
    const uint cursorModes =
        portalProperty(m_bus, QStringLiteral("AvailableCursorModes"), options.requestTimeout)
            .toUInt();

    const QString sessionToken = newToken();
    QString token = newToken();
    const QVariantMap created =
        request(QStringLiteral("CreateSession"),
                {QVariantMap{{QStringLiteral("handle_token"), token},
                             {QStringLiteral("session_handle_token"), sessionToken}}},
                token, options.requestTimeout);
    m_sessionHandle = created.value(QStringLiteral("session_handle")).toString();
    if (m_sessionHandle.isEmpty())
        m_sessionHandle = portalPath + QStringLiteral("/session/") + senderPath() +
                          QLatin1Char('/') + sessionToken;
    m_bus.connect(portalService, m_sessionHandle, sessionInterface, QStringLiteral("Closed"), this,
                  SLOT(onSessionClosed(QVariantMap)));

    // The pointer as metadata lets us draw it (or not) ourselves; else the desktop draws it.
    m_cursorMode = (cursorModes & cursorMetadata) ? cursorMetadata : cursorEmbedded;
    QVariantMap selection{{QStringLiteral("types"), wantedTypes},
                          {QStringLiteral("multiple"), options.multiple}};
    if (cursorModes != 0)
        selection.insert(QStringLiteral("cursor_mode"), m_cursorMode);
    if (version.toUInt() >= 4) {
        selection.insert(QStringLiteral("persist_mode"), persistUntilRevoked);
        if (!options.restoreToken.isEmpty())
            selection.insert(QStringLiteral("restore_token"), options.restoreToken);
    }
    token = newToken();
    selection.insert(QStringLiteral("handle_token"), token);
    request(QStringLiteral("SelectSources"),
            {QVariant::fromValue(QDBusObjectPath(m_sessionHandle)), selection}, token,
            options.requestTimeout);

    token = newToken();
    const QVariantMap started =
        request(QStringLiteral("Start"),
                {QVariant::fromValue(QDBusObjectPath(m_sessionHandle)), QString(),
                 QVariantMap{{QStringLiteral("handle_token"), token}}},
                token, options.startTimeout);
    m_streams = parseStreams(started.value(QStringLiteral("streams")));
    m_restoreToken = started.value(QStringLiteral("restore_token")).toString();
    if (m_streams.empty())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The screen cast portal shared no stream"));
    // The session's Closed signal arrives later, on the main thread's loop.
    if (QCoreApplication::instance() && thread() != QCoreApplication::instance()->thread())
        moveToThread(QCoreApplication::instance()->thread());
    logLine("✅ Screen cast portal shared {} stream(s){}", m_streams.size(),
            m_restoreToken.isEmpty() ? "" : ", restore token kept");
}

int PortalScreenCast::openPipeWireRemote() {
    QDBusMessage message = QDBusMessage::createMethodCall(
        portalService, portalPath, screenCastInterface, QStringLiteral("OpenPipeWireRemote"));
    message << QVariant::fromValue(QDBusObjectPath(m_sessionHandle)) << QVariantMap();
    const QDBusMessage reply = m_bus.call(message, QDBus::Block, 10000);
    const auto fd = reply.arguments().value(0).value<QDBusUnixFileDescriptor>();
    if (reply.type() != QDBusMessage::ReplyMessage || !fd.isValid())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The screen cast portal gave no PipeWire remote: %1")
                .arg(reply.errorMessage()));
    const int own = ::dup(fd.fileDescriptor());
    if (own < 0)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Cannot keep the PipeWire remote descriptor"));
    return own;
}

void PortalScreenCast::close() {
    if (m_sessionHandle.isEmpty())
        return;
    m_bus.disconnect(portalService, m_sessionHandle, sessionInterface, QStringLiteral("Closed"),
                     this, SLOT(onSessionClosed(QVariantMap)));
    if (!m_closed.exchange(true)) {
        // Fire and forget: the session ends whether or not we hear back.
        m_bus.send(QDBusMessage::createMethodCall(portalService, m_sessionHandle, sessionInterface,
                                                  QStringLiteral("Close")));
    }
    m_sessionHandle.clear();
}
