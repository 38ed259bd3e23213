#include "core/model/RecordingConfiguration.h"

#include "core/settings/UserDefaults.h"
#include "core/support/Log.h"

void RecordingConfiguration::loadStudioConfiguration(const UserDefaults& defaults) {
    const bool clickToZoom = defaults.boolValue("enableClickToZoom");
    const bool separateLayers = defaults.boolValue("enableSeparateLayers");
    const bool alphaChannel = defaults.boolValue("enableAlphaChannel");
    if (!clickToZoom && !separateLayers && !alphaChannel) {
        studioConfig.reset();
        return;
    }

    StudioRecordingConfiguration config;
    config.enableClickToZoom = clickToZoom;
    config.enableSeparateLayers = separateLayers;
    config.enableAlphaChannel = alphaChannel;
    if (clickToZoom) {
        // Plain reads on purpose: a key never written arrives as 0.0. The settings pane writes
        // all three as soon as it is used, and the coordinator's own fallback only covers a
        // missing studio configuration.
        config.zoomLevel = defaults.doubleValue("zoomLevel");
        config.zoomDuration = defaults.doubleValue("zoomDuration");
        config.clickThreshold = defaults.doubleValue("clickThreshold");
    }
    studioConfig = config;

    logLine("📋 Loaded Studio configuration:");
    logLine("   Click-to-Zoom: {}", clickToZoom);
    logLine("   Separate Layers: {}", separateLayers);
    logLine("   Alpha Channel: {}", alphaChannel);
    if (clickToZoom) {
        logLine("   Zoom Level: {}x", formatDouble(config.zoomLevel));
        logLine("   Zoom Duration: {}s", formatDouble(config.zoomDuration));
        logLine("   Click Threshold: {}s", formatDouble(config.clickThreshold));
    }
}
