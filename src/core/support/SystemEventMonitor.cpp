#include "core/support/SystemEventMonitor.h"

namespace {

class SilentSystemEventMonitor final : public SystemEventMonitor {
public:
    void install(Handler) override {}
    void remove() override {}
};

std::unique_ptr<SystemEventMonitor>& sharedMonitor() {
    static std::unique_ptr<SystemEventMonitor> monitor =
        std::make_unique<SilentSystemEventMonitor>();
    return monitor;
}

} // namespace

SystemEventMonitor& SystemEventMonitor::shared() {
    return *sharedMonitor();
}

void SystemEventMonitor::setShared(std::unique_ptr<SystemEventMonitor> monitor) {
    sharedMonitor() = monitor ? std::move(monitor) : std::make_unique<SilentSystemEventMonitor>();
}

QString systemEventLabel(SystemEventMonitor::Event event) {
    using Event = SystemEventMonitor::Event;
    switch (event) {
    case Event::screensDidSleep:
        return QStringLiteral("screensDidSleep");
    case Event::screensDidWake:
        return QStringLiteral("screensDidWake");
    case Event::sessionDidResignActive:
        return QStringLiteral("sessionDidResignActive");
    case Event::sessionDidBecomeActive:
        return QStringLiteral("sessionDidBecomeActive");
    case Event::activeSpaceDidChange:
        return QStringLiteral("activeSpaceDidChange");
    case Event::didChangeScreenParameters:
        return QStringLiteral("didChangeScreenParameters");
    case Event::willSleep:
        return QStringLiteral("willSleep");
    case Event::didWake:
        return QStringLiteral("didWake");
    }
    return {};
}
