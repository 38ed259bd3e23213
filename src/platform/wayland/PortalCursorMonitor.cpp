#include "platform/wayland/PortalCursorMonitor.h"

#include "core/support/Log.h"
#include "platform/wayland/PortalCursorFeed.h"

#include <QTimer>

namespace {
// Cursor metadata comes with frames, at most at the screen's rate.
constexpr int pollIntervalMs = 16;
} // namespace

PortalCursorMonitor::PortalCursorMonitor(std::shared_ptr<const PortalCursorFeed> feed)
    : m_feed(std::move(feed)) {}

PortalCursorMonitor::~PortalCursorMonitor() = default;

std::optional<Point> PortalCursorMonitor::mouseLocation() const {
    return m_feed ? m_feed->location() : std::nullopt;
}

void PortalCursorMonitor::startMonitoring() {
    if (m_poll)
        return;
    // Wayland keeps every application away from the global pointer buttons.
    logLine("⚠️ Clicks are not recorded on Wayland: the desktop gives applications no "
            "global pointer buttons");
    m_lastReported = mouseLocation();
    m_poll = std::make_unique<QTimer>();
    m_poll->setInterval(pollIntervalMs);
    QObject::connect(m_poll.get(), &QTimer::timeout, [this] { poll(); });
    m_poll->start();
    logLine("🖱️ Cursor monitor: positions from the screen cast's cursor metadata");
}

void PortalCursorMonitor::stopMonitoring() {
    m_poll.reset();
    m_lastReported.reset();
}

void PortalCursorMonitor::poll() {
    const std::optional<Point> location = mouseLocation();
    if (!location || location == m_lastReported)
        return;
    m_lastReported = location;
    if (m_moveHandler)
        m_moveHandler(*location);
}
