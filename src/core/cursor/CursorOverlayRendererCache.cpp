#include "core/cursor/CursorOverlayRendererCache.h"

namespace {

constexpr auto staleAfter = std::chrono::seconds(60);

template <typename Element>
std::optional<double> firstTimestamp(const std::vector<Element>& elements) {
    return elements.empty() ? std::nullopt : std::optional<double>(elements.front().timestamp);
}

template <typename Element>
std::optional<double> lastTimestamp(const std::vector<Element>& elements) {
    return elements.empty() ? std::nullopt : std::optional<double>(elements.back().timestamp);
}

} // namespace

std::shared_ptr<const CursorOverlayRenderer> CursorOverlayRendererCache::renderer(
    const CursorOverlaySettings& settings, const std::vector<CursorPosition>& positions,
    const std::vector<CursorClick>& clicks, Clock::time_point now) {
    const bool matches = m_renderer && m_cachedSettings == settings &&
                         m_positionsCount == positions.size() && m_clicksCount == clicks.size() &&
                         m_firstPositionTimestamp == firstTimestamp(positions) &&
                         m_lastPositionTimestamp == lastTimestamp(positions) &&
                         m_firstClickTimestamp == firstTimestamp(clicks) &&
                         m_lastClickTimestamp == lastTimestamp(clicks);
    if (!matches) {
        m_renderer = std::make_shared<const CursorOverlayRenderer>(settings, positions, clicks);
        m_cachedSettings = settings;
        m_positionsCount = positions.size();
        m_clicksCount = clicks.size();
        m_firstPositionTimestamp = firstTimestamp(positions);
        m_lastPositionTimestamp = lastTimestamp(positions);
        m_firstClickTimestamp = firstTimestamp(clicks);
        m_lastClickTimestamp = lastTimestamp(clicks);
    }
    m_lastAccessTime = now;
    return m_renderer;
}

void CursorOverlayRendererCache::clearIfStale(Clock::time_point now) {
    if (m_renderer && now - m_lastAccessTime > staleAfter) {
        clearCache();
    }
}

void CursorOverlayRendererCache::clearCache() {
    m_renderer.reset();
}
