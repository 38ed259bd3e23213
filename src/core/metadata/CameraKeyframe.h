#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/EasingFunction.h"

#include <QUuid>

// Where the camera overlay sat from `timestamp` on.
struct CameraKeyframe {
    QUuid id = QUuid::createUuid();
    double timestamp = 0.0;
    Rect frame{};
    EasingFunction easing = EasingFunction::easeInOut;
    bool operator==(const CameraKeyframe&) const = default;
};
