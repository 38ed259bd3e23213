#pragma once

#include "platform/DesktopRecordingEngineFactory.h"
#include "platform/wayland/PortalSessionKeeper.h"

#include <QDBusConnection>

#include <memory>

class PortalCursorFeed;

// The engines of a recording on a Wayland desktop: screen capture through the ScreenCast
// portal and PipeWire, on top of what every desktop shares. Listing the content and recording
// use one portal session, so the user is asked at most once per run; in the desktop's dialog
// the user picks a monitor (a display, or an area of it) or a window. The pointer monitor
// follows the cursor metadata of whichever stream records.
class WaylandRecordingEngineFactory final : public DesktopRecordingEngineFactory {
public:
    explicit WaylandRecordingEngineFactory(
        QDBusConnection bus = QDBusConnection::sessionBus(),
        PortalSessionKeeper::TokenStore tokens =
            PortalSessionKeeper::settingsTokenStore("screenCastRestoreToken"));
    ~WaylandRecordingEngineFactory() override;

    std::unique_ptr<ScreenCaptureEngine> makeScreenCaptureEngine() override;
    SCShareableContent fetchShareableContent() override;
    std::unique_ptr<CursorOverlayController> makeCursorOverlayController() override;

private:
    std::shared_ptr<PortalSessionKeeper> m_sessions;
    std::shared_ptr<PortalCursorFeed> m_cursorFeed; // shared by the engines and the monitor
};
