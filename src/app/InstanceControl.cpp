#include "app/InstanceControl.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace InstanceControl {

std::optional<QString> commandFromArguments(const QStringList& arguments) {
    if (arguments.contains(QStringLiteral("--toggle-recording")))
        return QStringLiteral("ToggleRecording");
    if (arguments.contains(QStringLiteral("--pause")))
        return QStringLiteral("PauseRecording");
    if (arguments.contains(QStringLiteral("--stop")))
        return QStringLiteral("StopRecording");
    return std::nullopt;
}

Forwarded forward(const QString& method, const QVariantList& arguments) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() ||
        !bus.interface()->isServiceRegistered(QString::fromLatin1(serviceName)))
        return Forwarded::noInstance;
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(serviceName),
                                                       QString::fromLatin1(objectPath),
                                                       QString::fromLatin1(interfaceName), method);
    call.setArguments(arguments);
    const QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
    return reply.type() == QDBusMessage::ReplyMessage ? Forwarded::delivered
                                                      : Forwarded::noInstance;
}

} // namespace InstanceControl

bool InstanceControlService::registerOnSessionBus() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    if (!bus.registerService(QString::fromLatin1(InstanceControl::serviceName)))
        return false;
    return bus.registerObject(QString::fromLatin1(InstanceControl::objectPath), this,
                              QDBusConnection::ExportScriptableSlots);
}
