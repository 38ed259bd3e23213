#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/EasingFunction.h"

#include <QUuid>

// The legacy editor's zoom: a level reached at `time`, focused on `center` (normalised,
// origin top-left). Kept so that older documents still open.
struct ZoomKeyframe {
    QUuid id = QUuid::createUuid();
    double time = 0.0;
    Point center{};
    double level = 1.0;
    double easeIn = 0.8;
    double easeOut = 0.8;
    EasingFunction easing = EasingFunction::easeInOut;
    bool operator==(const ZoomKeyframe&) const = default;
};
