#pragma once

#include "core/support/ScreenRecordingPermission.h"

#include <QDBusConnection>

// On Wayland the ScreenCast portal is the permission: the screen may be asked for wherever the
// portal answers, and the user's answer comes when the session starts (a refusal is a
// permission error then). Thread: main.
class PortalScreenCaptureAccess final : public ScreenCaptureAccess {
public:
    explicit PortalScreenCaptureAccess(QDBusConnection bus) : m_bus(std::move(bus)) {}

    bool preflight() override;
    void request() override {}
    void registerWithCaptureService() override;

private:
    QDBusConnection m_bus;
};
