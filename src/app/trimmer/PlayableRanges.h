#pragma once

#include "core/editing/VideoSegment.h"

#include <utility>
#include <vector>

// The parts of a recording that playback goes through: all of it but the segments marked for
// removal, as the export leaves them out. A plain value.
class PlayableRanges final {
public:
    PlayableRanges() = default;
    PlayableRanges(double duration, const std::vector<VideoSegment>& segments);

    double duration() const { return m_duration; }
    bool isEmpty() const;
    // Where playback goes on from `seconds`: itself when it is kept, else the end of the removed
    // stretch it lies in (the recording's end when nothing kept follows).
    double resolve(double seconds) const;
    // Where the kept stretch holding `seconds` (resolved first) ends.
    double keptEnd(double seconds) const;
    // Where playback begins, and starts again when it loops.
    double first() const { return resolve(0.0); }
    bool operator==(const PlayableRanges&) const = default;

private:
    double m_duration = 0.0;
    // Sorted, merged, within [0, duration].
    std::vector<std::pair<double, double>> m_removed;
};
