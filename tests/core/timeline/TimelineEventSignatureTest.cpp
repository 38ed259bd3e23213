#include "core/timeline/TimelineEventSignature.h"

#include "core/metadata/CameraKeyframe.h"
#include "core/metadata/ZoomEvent.h"

#include <gtest/gtest.h>

namespace {

ZoomEvent event(double t) {
    ZoomEvent e;
    e.timestamp = t;
    return e;
}

TEST(TimelineEventSignatureTest, SeesLengthAndEnds) {
    EXPECT_EQ(TimelineEventSignature::of(std::vector<ZoomEvent>{}),
              (TimelineEventSignature{0, 0.0, 0.0}));
    const std::vector<ZoomEvent> events = {event(1.0), event(2.0), event(4.5)};
    EXPECT_EQ(TimelineEventSignature::of(events), (TimelineEventSignature{3, 1.0, 4.5}));
    // Moving the last event, or adding one, changes the signature; ids do not matter.
    auto moved = events;
    moved.back().timestamp = 5.0;
    EXPECT_NE(TimelineEventSignature::of(moved), TimelineEventSignature::of(events));
    auto longer = events;
    longer.push_back(event(4.5));
    EXPECT_NE(TimelineEventSignature::of(longer), TimelineEventSignature::of(events));
    const std::vector<ZoomEvent> fresh = {event(1.0), event(2.0), event(4.5)};
    EXPECT_EQ(TimelineEventSignature::of(fresh), TimelineEventSignature::of(events));

    CameraKeyframe k;
    k.timestamp = 3.0;
    EXPECT_EQ(TimelineEventSignature::of(std::vector<CameraKeyframe>{k}),
              (TimelineEventSignature{1, 3.0, 3.0}));
}

} // namespace
