#pragma once

#include "core/recording/engines/CursorOverlayController.h"
#include "platform/x11/ClickClassifier.h"
#include "platform/x11/CursorOverlayWindows.h"

#include <xcb/xcb.h>

#include <memory>
#include <optional>

class QSocketNotifier;
class QTimer;
class X11Connection;
class X11MagnifierSource;

// The pointer monitor of an X11 desktop. XInput2 raw button and motion events, selected on
// the root window for all master devices, arrive for real devices and for XTEST input alike,
// whoever has the pointer grabbed; positions come from QueryPointer and are handed on as global
// points with the origin at the bottom left. Presses on the program's own windows are not
// clicks of the recording, as with a monitor that only sees other programs' events.
//
// Thread: main. Events are read from the connection's socket by the main event loop, so the
// handlers run on the main thread. The live overlay settings are kept for the overlay windows.
class X11CursorMonitor final : public CursorOverlayController {
public:
    X11CursorMonitor();
    ~X11CursorMonitor() override;

    void setClickThreshold(double seconds) override { m_classifier.setClickThreshold(seconds); }
    double clickThreshold() const { return m_classifier.clickThreshold(); }
    std::optional<double> lastClickTime() const { return m_classifier.lastClickTime(); }
    void setClickHandler(ClickHandler handler) override { m_clickHandler = std::move(handler); }
    void setCursorMoveHandler(MoveHandler handler) override { m_moveHandler = std::move(handler); }
    void configureCustomCursor(std::optional<CursorStyle> style, double size, bool enabled,
                               bool scaleAnimation, bool rippleEffect,
                               std::optional<CodableColor> rippleColor) override;
    void setHighlightEnabled(bool enabled) override;
    bool isHighlightEnabled() const override { return m_highlightEnabled; }
    // The magnifier follows the pointer at the screen's rate from now on, whether clicks are
    // watched or not; stopping the monitor puts it away until the next start.
    void setMagnifierEnabled(bool enabled) override;
    bool isMagnifierEnabled() const override { return m_magnifierEnabled; }
    std::optional<Point> mouseLocation() const override;
    void startMonitoring() override;
    void stopMonitoring() override;
    bool isMonitoring() const { return m_notifier != nullptr; }
    // Keeps the pointer and magnifier overlays out of sight while true (a screenshot, say).
    void setHideOverlays(bool hide);
    bool isPointerOverlayVisible() const { return m_overlays && m_overlays->isPointerVisible(); }
    bool isMagnifierVisible() const { return m_overlays && m_overlays->isMagnifierVisible(); }

private:
    struct PointerState {
        Point location; // global, origin bottom left
        int rootX = 0;  // root pixels, origin top left
        int rootY = 0;
        bool onOwnWindow = false;
    };

    bool selectRawEvents();
    void readEvents();
    void handleButtonPress(uint32_t button);
    void reportMove();
    void updateOverlays(const PointerState& pointer);
    bool ensureOverlays();
    // Starts or stops the magnifier's own round after a change of what it depends on.
    void refreshMagnifier();
    void updateMagnifier();
    PointerLook pointerLook() const;
    void setSystemCursorHidden(bool hidden);
    void reportCompositing();
    std::optional<PointerState> queryPointer(bool checkOwnWindows) const;
    bool isOwnWindow(xcb_window_t window) const;

    std::unique_ptr<X11Connection> m_connection;
    std::unique_ptr<QSocketNotifier> m_notifier;
    // While overlays follow the pointer: a warped pointer (XWarpPointer) sends no device event,
    // so the overlays also look where it is at the screen's rate.
    std::unique_ptr<QTimer> m_overlayPoll;
    std::optional<std::pair<int, int>> m_lastReported; // root pixels of the last move
    uint8_t m_inputOpcode = 0;
    bool m_reportedConnectionLoss = false;

    ClickClassifier m_classifier;
    ClickHandler m_clickHandler;
    MoveHandler m_moveHandler;

    std::unique_ptr<CursorOverlayWindows> m_overlays; // made on first use, with a GUI only
    // The magnifier's round: a connection of its own (whose redirection of the top-level
    // windows ends with it), the source of the picture under the pointer, and the timer.
    std::unique_ptr<X11Connection> m_magnifierConnection;
    std::unique_ptr<X11MagnifierSource> m_magnifierSource;
    std::unique_ptr<QTimer> m_magnifierTimer;
    bool m_magnifierStopped = false; // by stopMonitoring, until the next start
    bool m_reportedMagnifierFailure = false;
    bool m_hideMousePointer = false;
    bool m_hideMagnifier = false;
    bool m_systemCursorHidden = false;
    bool m_reportedCompositing = false;

    bool m_highlightEnabled = false;
    bool m_magnifierEnabled = false;
    std::optional<CursorStyle> m_customCursorStyle;
    double m_customCursorSize = 24.0;
    bool m_useCustomCursor = false;
    bool m_enableScaleAnimation = true;
    bool m_enableRippleEffect = true;
    CodableColor m_rippleColor{0.0, 0.5, 1.0, 0.5};
};
