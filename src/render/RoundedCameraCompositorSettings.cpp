#include "render/RoundedCameraCompositorSettings.h"

RoundedCameraCompositorSettings& RoundedCameraCompositorSettings::shared() {
    static RoundedCameraCompositorSettings instance;
    return instance;
}
