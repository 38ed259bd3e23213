#pragma once

#include "core/geometry/Rect.h"

#include <QString>

#include <cstdint>
#include <optional>

// What the platform reports about things that can be recorded. The platform layer fills these;
// the core only compares and displays them. Frames are in global points, origin bottom left.

struct SCDisplay {
    uint32_t displayID = 0;
    Rect frame;
    double pixelScale = 1.0;
    bool operator==(const SCDisplay&) const = default;
};

struct SCRunningApplication {
    QString bundleIdentifier;
    QString applicationName;
    int64_t processID = 0;
    bool operator==(const SCRunningApplication&) const = default;
};

struct SCWindow {
    uint32_t windowID = 0;
    QString title;
    Rect frame;
    std::optional<SCRunningApplication> owningApplication;
    bool isOnScreen = true;
    bool operator==(const SCWindow&) const = default;
};

struct AVCaptureDevice {
    QString uniqueID;
    QString localizedName;
    bool operator==(const AVCaptureDevice&) const = default;
};
