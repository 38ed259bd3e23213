#include "platform/wayland/WaylandRecordingEngineFactory.h"

#include "platform/wayland/PortalScreenCaptureEngine.h"

namespace {
PortalScreenCast::Options sourcesOf(uint32_t types) {
    PortalScreenCast::Options options;
    options.sourceTypes = types;
    return options;
}
} // namespace

WaylandRecordingEngineFactory::WaylandRecordingEngineFactory(QDBusConnection bus,
                                                             PortalSessionKeeper::TokenStore tokens)
    : m_sessions(std::make_shared<PortalSessionKeeper>(
          std::move(bus), std::move(tokens),
          sourcesOf(PortalScreenCast::monitorSource | PortalScreenCast::windowSource))) {}

WaylandRecordingEngineFactory::~WaylandRecordingEngineFactory() = default;

std::unique_ptr<ScreenCaptureEngine> WaylandRecordingEngineFactory::makeScreenCaptureEngine() {
    return std::make_unique<PortalScreenCaptureEngine>(m_sessions);
}

SCShareableContent WaylandRecordingEngineFactory::fetchShareableContent() {
    return m_sessions->content();
}
