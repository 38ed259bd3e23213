#include "platform/desktop/DBusPowerAssertionBackend.h"

#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>

#include <unistd.h>

namespace {
const QString screenSaverService = QStringLiteral("org.freedesktop.ScreenSaver");
const QString screenSaverPath = QStringLiteral("/org/freedesktop/ScreenSaver");
const QString applicationName = QStringLiteral("tavelquiston");

QString errorCode(const QDBusMessage& reply) {
    return reply.errorName().isEmpty() ? QStringLiteral("unexpected reply") : reply.errorName();
}
} // namespace

DBusPowerAssertionBackend::DBusPowerAssertionBackend(QDBusConnection sessionBus,
                                                     QDBusConnection systemBus)
    : m_session(std::move(sessionBus)), m_system(std::move(systemBus)) {}

DBusPowerAssertionBackend::~DBusPowerAssertionBackend() {
    for (auto& [id, fd] : m_logindInhibitors)
        ::close(fd);
}

PowerAssertionBackend::Result DBusPowerAssertionBackend::createAssertion(const QString& reason) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        screenSaverService, screenSaverPath, screenSaverService, QStringLiteral("Inhibit"));
    call << applicationName << reason;
    const QDBusMessage reply = m_session.call(call, QDBus::Block, callTimeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage && reply.arguments().size() == 1)
        return reply.arguments().first().toUInt();
    const QString screenSaverError = errorCode(reply);

    QDBusMessage inhibit = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
    inhibit << QStringLiteral("idle") << applicationName << reason << QStringLiteral("block");
    const QDBusMessage logindReply = m_system.call(inhibit, QDBus::Block, callTimeoutMs);
    if (logindReply.type() == QDBusMessage::ReplyMessage && logindReply.arguments().size() == 1) {
        const auto descriptor = logindReply.arguments().first().value<QDBusUnixFileDescriptor>();
        if (descriptor.isValid()) {
            // The reply's descriptor closes with the reply; keep a copy of our own.
            const int fd = ::dup(descriptor.fileDescriptor());
            if (fd >= 0) {
                const uint32_t id = m_nextLogindID++;
                m_logindInhibitors.emplace(id, fd);
                return id;
            }
        }
    }
    return screenSaverError;
}

QString DBusPowerAssertionBackend::releaseAssertion(uint32_t assertionID) {
    if (auto it = m_logindInhibitors.find(assertionID); it != m_logindInhibitors.end()) {
        const int result = ::close(it->second);
        m_logindInhibitors.erase(it);
        return result == 0 ? QString() : QString::number(errno);
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        screenSaverService, screenSaverPath, screenSaverService, QStringLiteral("UnInhibit"));
    call << assertionID;
    const QDBusMessage reply = m_session.call(call, QDBus::Block, callTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage ? QString() : errorCode(reply);
}
