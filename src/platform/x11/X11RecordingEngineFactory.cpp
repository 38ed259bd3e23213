#include "platform/x11/X11RecordingEngineFactory.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11CursorMonitor.h"
#include "platform/x11/X11ScreenCaptureEngine.h"
#include "platform/x11/X11ShareableContent.h"

X11RecordingEngineFactory::X11RecordingEngineFactory(QByteArray hiddenApps)
    : m_hiddenApps(std::move(hiddenApps)) {}

X11RecordingEngineFactory::~X11RecordingEngineFactory() = default;

std::unique_ptr<ScreenCaptureEngine> X11RecordingEngineFactory::makeScreenCaptureEngine() {
    return std::make_unique<X11ScreenCaptureEngine>(m_hiddenApps);
}

std::unique_ptr<CursorOverlayController> X11RecordingEngineFactory::makeCursorOverlayController() {
    return std::make_unique<X11CursorMonitor>();
}

SCShareableContent X11RecordingEngineFactory::fetchShareableContent() {
    X11Connection connection;
    return X11ShareableContent::fetch(connection);
}
