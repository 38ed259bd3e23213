#pragma once

#include "core/editing/VideoSegment.h"

#include <optional>
#include <vector>

// The cut segments of an editing session: sorted in time, each one ending where the next
// begins, together covering the video. A cut divides one segment and never moves another.
// Marks say which pieces an export leaves out. Main thread, like the session that owns it.
class CutSegmentList final {
public:
    const std::vector<VideoSegment>& segments() const { return m_segments; }
    bool isEmpty() const { return m_segments.empty(); }

    // One segment over the whole video, replacing whatever was there.
    void reset(MediaTime duration);
    // Divides the segment with start <= time < end in two fresh, unmarked pieces (a mark on the
    // divided segment is dropped on purpose). False, and nothing changes, for a time at or
    // outside the ends or on an existing cut. The result is the new number of segments.
    std::optional<int> split(MediaTime time);
    // Flips the deletion mark; false for an unknown id.
    bool toggleDeletion(const QUuid& id);
    const VideoSegment* segment(const QUuid& id) const;

    std::vector<VideoSegment> activeSegments() const;
    // Seconds of video that the kept segments add up to.
    double totalActiveDuration() const;

    // Keeps only the given source ranges of a video of `duration`: overlapping or touching ranges
    // merge, cuts go at every range's ends and the segments between are marked. Ranges must
    // lie within the video; an empty list keeps nothing.
    static CutSegmentList keeping(std::vector<MediaTimeRange> ranges, MediaTime duration);

private:
    std::vector<VideoSegment> m_segments;
};

// Sorted, with overlapping or touching ranges joined into one.
std::vector<MediaTimeRange> mergedTimeRanges(std::vector<MediaTimeRange> ranges);
