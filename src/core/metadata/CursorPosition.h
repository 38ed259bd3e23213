#pragma once

#include "core/geometry/Rect.h"

#include <QUuid>

// One cursor sample. `position` is normalised to the captured frame, origin top-left.
struct CursorPosition {
    QUuid id = QUuid::createUuid();
    double timestamp = 0.0;
    Point position{};
    bool operator==(const CursorPosition&) const = default;
};
