#pragma once

#include "core/geometry/Rect.h"

#include <functional>
#include <mutex>
#include <optional>

// Hands the pointer position of the stream being recorded to the pointer monitor. The monitor
// lives as long as the application, screen engines only as long as a recording, so the engine
// of the moment attaches its reader and detaches it before it goes; an engine made for the next
// recording takes over, and a detach by one that was replaced changes nothing.
// Thread-safe: readers are called under the feed's lock, so a detached reader is never running.
class PortalCursorFeed final {
public:
    using Reader = std::function<std::optional<Point>()>;

    void attach(const void* owner, Reader reader) {
        std::lock_guard lock(m_mutex);
        m_owner = owner;
        m_reader = std::move(reader);
    }
    void detach(const void* owner) {
        std::lock_guard lock(m_mutex);
        if (m_owner != owner)
            return;
        m_owner = nullptr;
        m_reader = {};
    }
    // Global points, origin bottom left; absent without a stream or its cursor metadata.
    std::optional<Point> location() const {
        std::lock_guard lock(m_mutex);
        return m_reader ? m_reader() : std::nullopt;
    }

private:
    mutable std::mutex m_mutex;
    const void* m_owner = nullptr;
    Reader m_reader;
};
