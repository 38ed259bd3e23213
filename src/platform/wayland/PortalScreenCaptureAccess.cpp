#include "platform/wayland/PortalScreenCaptureAccess.h"

#include "core/model/RecordingError.h"
#include "platform/wayland/PortalScreenCast.h"

bool PortalScreenCaptureAccess::preflight() {
    return PortalScreenCast::availableSourceTypes(m_bus).has_value();
}

void PortalScreenCaptureAccess::registerWithCaptureService() {
    if (!preflight())
        throw RecordingError::captureDeviceUnavailable();
}
