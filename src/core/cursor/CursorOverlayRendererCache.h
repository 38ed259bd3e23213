#pragma once

#include "core/cursor/CursorOverlayRenderer.h"

#include <chrono>
#include <memory>
#include <optional>

// Keeps the preview's renderer across view updates. A view is rebuilt often while a renderer
// smooths the whole path when made, so it is rebuilt only when the settings or the data change.
// The data are recognised by their counts and first and last timestamps: recorded samples are
// only ever replaced as a whole, never edited in the middle.
//
// Main thread, like the views that use it.
class CursorOverlayRendererCache final {
public:
    using Clock = std::chrono::steady_clock;

    // The cached renderer when settings and data match, otherwise a new one, which is kept.
    std::shared_ptr<const CursorOverlayRenderer>
    renderer(const CursorOverlaySettings& settings, const std::vector<CursorPosition>& positions,
             const std::vector<CursorClick>& clicks, Clock::time_point now = Clock::now());
    // Lets go of a renderer that nobody asked for in the last minute.
    void clearIfStale(Clock::time_point now = Clock::now());
    void clearCache();

    bool isEmpty() const { return m_renderer == nullptr; }

private:
    std::shared_ptr<const CursorOverlayRenderer> m_renderer;
    CursorOverlaySettings m_cachedSettings;
    std::size_t m_positionsCount = 0;
    std::size_t m_clicksCount = 0;
    std::optional<double> m_firstPositionTimestamp;
    std::optional<double> m_lastPositionTimestamp;
    std::optional<double> m_firstClickTimestamp;
    std::optional<double> m_lastClickTimestamp;
    Clock::time_point m_lastAccessTime;
};
