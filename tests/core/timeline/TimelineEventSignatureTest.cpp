#include "core/timeline/TimelineEventSignature.h"

#include "core/metadata/CameraKeyframe.h"
#include "core/metadata/ZoomEvent.h"

#include <gtest/gtest.h>

namespace {

TEST(TimelineEventSignatureTest, SeesLengthAndEnds) {
    std::vector<ZoomEvent> events(3);
    events[0].timestamp = 1.0;
    events[2].timestamp = 4.5;
    EXPECT_EQ(TimelineEventSignature::of(events), (TimelineEventSignature{3, 1.0, 4.5}));
    EXPECT_EQ(TimelineEventSignature::of(std::vector<CameraKeyframe>{}),
              (TimelineEventSignature{0, 0.0, 0.0}));
    // Moving the last element changes it; new ids alone do not.
    auto moved = events;
    moved.back().timestamp = 5.0;
    EXPECT_NE(TimelineEventSignature::of(moved), TimelineEventSignature::of(events));
    std::vector<ZoomEvent> fresh(3);
    fresh[0].timestamp = 1.0;
    fresh[2].timestamp = 4.5;
    EXPECT_EQ(TimelineEventSignature::of(fresh), TimelineEventSignature::of(events));
}

} // namespace
