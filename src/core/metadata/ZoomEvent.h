#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/EasingFunction.h"

#include <QUuid>

// A zoom requested while recording. Unlike every other point of the metadata, `position` has
// its origin at the bottom left (normalised); whoever turns it into a top-left point mirrors y.
struct ZoomEvent {
    QUuid id = QUuid::createUuid();
    double timestamp = 0.0;
    Point position{};
    double level = 1.0;    // magnification, 1 is none
    double duration = 0.0; // seconds the zoom takes to ease
    EasingFunction easing = EasingFunction::easeInOut;
    bool operator==(const ZoomEvent&) const = default;
};
