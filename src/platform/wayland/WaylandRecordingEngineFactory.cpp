#include "platform/wayland/WaylandRecordingEngineFactory.h"

#include "platform/wayland/PortalCursorFeed.h"
#include "platform/wayland/PortalCursorMonitor.h"
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
          sourcesOf(PortalScreenCast::monitorSource | PortalScreenCast::windowSource))),
      m_cursorFeed(std::make_shared<PortalCursorFeed>()) {}

WaylandRecordingEngineFactory::~WaylandRecordingEngineFactory() = default;

std::unique_ptr<ScreenCaptureEngine> WaylandRecordingEngineFactory::makeScreenCaptureEngine() {
    return std::make_unique<PortalScreenCaptureEngine>(m_sessions, m_cursorFeed);
}

std::unique_ptr<CursorOverlayController>
WaylandRecordingEngineFactory::makeCursorOverlayController() {
    return std::make_unique<PortalCursorMonitor>(m_cursorFeed);
}

SCShareableContent WaylandRecordingEngineFactory::fetchShareableContent() {
    return m_sessions->content();
}
