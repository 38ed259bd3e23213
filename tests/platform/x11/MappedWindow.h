#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ShareableContent.h"

#include "support/EventLoop.h"

#include <chrono>
#include <optional>

// The shareable content once the test's one window is listed and mapped: the window manager
// lists a new window a moment before it maps it. Absent when that takes longer than 10 s.
inline std::optional<SCShareableContent> contentWithMappedWindow(X11Connection& connection) {
    SCShareableContent content;
    const bool shown = waitUntil(
        [&] {
            content = X11ShareableContent::fetch(connection);
            return !content.windows.empty() && content.windows.front().isOnScreen;
        },
        std::chrono::seconds(10));
    return shown ? std::optional(content) : std::nullopt;
}
