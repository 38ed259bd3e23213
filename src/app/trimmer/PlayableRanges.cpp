#include "app/trimmer/PlayableRanges.h"

#include <algorithm>

PlayableRanges::PlayableRanges(double duration, const std::vector<VideoSegment>& segments)
    : m_duration(std::max(duration, 0.0)) {
    for (const VideoSegment& segment : segments) {
        if (!segment.isMarkedForDeletion)
            continue;
        const double start = std::clamp(segment.startTimeInSeconds(), 0.0, m_duration);
        const double end = std::clamp(segment.endTimeInSeconds(), 0.0, m_duration);
        if (end > start)
            m_removed.emplace_back(start, end);
    }
    std::sort(m_removed.begin(), m_removed.end());
    std::vector<std::pair<double, double>> merged;
    for (const auto& range : m_removed) {
        if (!merged.empty() && range.first <= merged.back().second)
            merged.back().second = std::max(merged.back().second, range.second);
        else
            merged.push_back(range);
    }
    m_removed = std::move(merged);
}

bool PlayableRanges::isEmpty() const {
    return m_duration <= 0.0 || resolve(0.0) >= m_duration;
}

double PlayableRanges::resolve(double seconds) const {
    seconds = std::clamp(seconds, 0.0, m_duration);
    for (const auto& [start, end] : m_removed) {
        if (seconds >= start && seconds < end)
            return end;
    }
    return seconds;
}

double PlayableRanges::keptEnd(double seconds) const {
    seconds = resolve(seconds);
    for (const auto& [start, end] : m_removed) {
        if (start >= seconds)
            return start;
    }
    return m_duration;
}
