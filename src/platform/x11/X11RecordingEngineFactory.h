#pragma once

#include "platform/DesktopRecordingEngineFactory.h"

#include <QByteArray>

// The engines of a recording on an X11 desktop: X11 screen capture, its content and the pointer
// monitor, on top of what every desktop shares.
class X11RecordingEngineFactory final : public DesktopRecordingEngineFactory {
public:
    // `hiddenApps` is the persisted list of applications hidden from recordings.
    explicit X11RecordingEngineFactory(QByteArray hiddenApps = {});
    ~X11RecordingEngineFactory() override;

    std::unique_ptr<ScreenCaptureEngine> makeScreenCaptureEngine() override;
    std::unique_ptr<CursorOverlayController> makeCursorOverlayController() override;
    SCShareableContent fetchShareableContent() override;

private:
    QByteArray m_hiddenApps;
};
