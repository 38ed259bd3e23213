#include "core/editing/CutSegmentList.h"

#include <algorithm>

void CutSegmentList::reset(MediaTime duration) {
    m_segments.clear();
    VideoSegment whole;
    whole.startTime = MediaTime::zero();
    whole.endTime = duration;
    m_segments.push_back(whole);
}

std::optional<int> CutSegmentList::split(MediaTime time) {
    const auto found = std::find_if(m_segments.begin(), m_segments.end(), [&](const auto& s) {
        return s.startTime <= time && time < s.endTime;
    });
    if (found == m_segments.end() || found->startTime == time)
        return std::nullopt;
    VideoSegment before, after;
    before.startTime = found->startTime;
    before.endTime = time;
    after.startTime = time;
    after.endTime = found->endTime;
    const auto index = found - m_segments.begin();
    m_segments.erase(found);
    m_segments.insert(m_segments.begin() + index, {before, after});
    return int(m_segments.size());
}

bool CutSegmentList::toggleDeletion(const QUuid& id) {
    for (VideoSegment& segment : m_segments) {
        if (segment.id == id) {
            segment.isMarkedForDeletion = !segment.isMarkedForDeletion;
            return true;
        }
    }
    return false;
}

const VideoSegment* CutSegmentList::segment(const QUuid& id) const {
    for (const VideoSegment& segment : m_segments) {
        if (segment.id == id)
            return &segment;
    }
    return nullptr;
}

std::vector<VideoSegment> CutSegmentList::activeSegments() const {
    std::vector<VideoSegment> active;
    std::copy_if(m_segments.begin(), m_segments.end(), std::back_inserter(active),
                 [](const VideoSegment& s) { return !s.isMarkedForDeletion; });
    return active;
}

double CutSegmentList::totalActiveDuration() const {
    double total = 0;
    for (const VideoSegment& segment : m_segments) {
        if (!segment.isMarkedForDeletion)
            total += segment.endTimeInSeconds() - segment.startTimeInSeconds();
    }
    return total;
}

std::vector<MediaTimeRange> mergedTimeRanges(std::vector<MediaTimeRange> ranges) {
    std::sort(ranges.begin(), ranges.end(),
              [](const auto& a, const auto& b) { return a.start < b.start; });
    std::vector<MediaTimeRange> merged;
    for (const MediaTimeRange& range : ranges) {
        if (!merged.empty() && range.start <= merged.back().end()) {
            const MediaTime end = std::max(merged.back().end(), range.end());
            merged.back().duration = end - merged.back().start;
        } else {
            merged.push_back(range);
        }
    }
    return merged;
}

CutSegmentList CutSegmentList::keeping(std::vector<MediaTimeRange> ranges, MediaTime duration) {
    CutSegmentList list;
    list.reset(duration);
    const std::vector<MediaTimeRange> kept = mergedTimeRanges(std::move(ranges));
    for (const MediaTimeRange& range : kept) {
        list.split(range.start);
        list.split(range.end());
    }
    for (VideoSegment& segment : list.m_segments) {
        segment.isMarkedForDeletion = std::none_of(kept.begin(), kept.end(), [&](const auto& r) {
            return r.start <= segment.startTime && segment.endTime <= r.end();
        });
    }
    return list;
}
