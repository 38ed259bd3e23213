#pragma once

#include "core/model/CaptureSources.h"

#include <vector>

// Everything the desktop offers for capture at one moment.
struct SCShareableContent {
    std::vector<SCDisplay> displays;
    std::vector<SCWindow> windows;
    std::vector<SCRunningApplication> applications;
    bool operator==(const SCShareableContent&) const = default;
};
