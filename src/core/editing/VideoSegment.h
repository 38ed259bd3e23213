#pragma once

#include "core/time/MediaTime.h"
#include "core/time/MediaTimeRange.h"

#include <QString>
#include <QUuid>

// One piece of the video between two cuts, kept or marked for deletion. A plain value.
struct VideoSegment {
    QUuid id = QUuid::createUuid();
    MediaTime startTime = MediaTime::zero();
    MediaTime endTime = MediaTime::zero();
    bool isMarkedForDeletion = false;

    double startTimeInSeconds() const { return startTime.seconds(); }
    double endTimeInSeconds() const { return endTime.seconds(); }
    MediaTimeRange timeRange() const { return {startTime, endTime - startTime}; }
    // "m:ss - m:ss" ("h:mm:ss" past an hour); a time that is not a number reads "0:00".
    QString formattedTimeRange() const;
    bool operator==(const VideoSegment&) const = default;
};
