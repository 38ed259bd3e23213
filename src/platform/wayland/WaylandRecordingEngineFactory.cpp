#include "platform/wayland/WaylandRecordingEngineFactory.h"

#include "platform/wayland/PortalScreenCaptureEngine.h"

WaylandRecordingEngineFactory::WaylandRecordingEngineFactory(QDBusConnection bus,
                                                             PortalSessionKeeper::TokenStore tokens)
    : m_sessions(std::make_shared<PortalSessionKeeper>(std::move(bus), std::move(tokens))) {}

WaylandRecordingEngineFactory::~WaylandRecordingEngineFactory() = default;

std::unique_ptr<ScreenCaptureEngine> WaylandRecordingEngineFactory::makeScreenCaptureEngine() {
    return std::make_unique<PortalScreenCaptureEngine>(m_sessions);
}

SCShareableContent WaylandRecordingEngineFactory::fetchShareableContent() {
    return m_sessions->content();
}
