#pragma once

#include "core/recording/engines/CursorOverlayController.h"

#include <memory>
#include <optional>

class PortalCursorFeed;
class QTimer;

// The pointer monitor of a Wayland desktop. Wayland gives no client the global pointer, so the
// position comes from the cursor metadata of the stream being recorded (through the feed) and
// is looked at at the screen's rate; each change is a move. There are no clicks: the desktop
// sends applications no pointer buttons outside their own windows, and the log says so once per
// start. The highlight and magnifier settings are kept but nothing is drawn over the desktop,
// since a Wayland client cannot place a window under the pointer.
// Thread: main; the handlers run on the main thread with global points, origin bottom left.
class PortalCursorMonitor final : public CursorOverlayController {
public:
    explicit PortalCursorMonitor(std::shared_ptr<const PortalCursorFeed> feed);
    ~PortalCursorMonitor() override;

    void setClickThreshold(double) override {}
    void setClickHandler(ClickHandler handler) override { m_clickHandler = std::move(handler); }
    void setCursorMoveHandler(MoveHandler handler) override { m_moveHandler = std::move(handler); }
    void configureCustomCursor(std::optional<CursorStyle>, double, bool, bool, bool,
                               std::optional<CodableColor>) override {}
    void setHighlightEnabled(bool enabled) override { m_highlightEnabled = enabled; }
    bool isHighlightEnabled() const override { return m_highlightEnabled; }
    void setMagnifierEnabled(bool enabled) override { m_magnifierEnabled = enabled; }
    bool isMagnifierEnabled() const override { return m_magnifierEnabled; }
    std::optional<Point> mouseLocation() const override;
    void startMonitoring() override;
    void stopMonitoring() override;
    bool isMonitoring() const { return m_poll != nullptr; }

private:
    void poll();

    std::shared_ptr<const PortalCursorFeed> m_feed;
    std::unique_ptr<QTimer> m_poll;
    std::optional<Point> m_lastReported;
    ClickHandler m_clickHandler; // kept for the interface; never called
    MoveHandler m_moveHandler;
    bool m_highlightEnabled = false;
    bool m_magnifierEnabled = false;
};
