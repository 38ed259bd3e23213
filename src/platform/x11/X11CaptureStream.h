#pragma once

#include "core/model/RecordingOptions.h"
#include "core/recording/engines/ScreenCaptureEngine.h"
#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11WindowTracker.h"

#include <cstdint>
#include <optional>

// What one configured stream captures and how: settled on the main thread when the stream is
// configured, copied to the capture thread when it starts.
struct X11CaptureStream {
    SCStreamConfiguration size;
    X11Rect source; // root pixels that are grabbed
    int frameRate = 60;
    bool showsCursor = false;
    BackgroundType background = BackgroundType::black;
    // Window modes: the windows composed, over this colour (absent: the wallpaper).
    // Display modes: the windows kept out, painted over with what lies below them.
    X11WindowSelection windows;
    bool composesWindows = false;
    bool followsWindow = false; // one window by itself, wherever it goes
    std::optional<uint32_t> backgroundRGB;
    // Display and area modes: the RandR monitor grabbed from, and where it was when the stream
    // was set up, so that a rearranged screen stops the stream instead of recording elsewhere.
    std::optional<uint32_t> displayID;
    X11Rect displayPixels;
};
