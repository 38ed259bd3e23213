#pragma once

#include "core/geometry/Rect.h"

#include <QRect>

// The recording core counts screen points from the bottom left of the desktop; Qt counts from
// the top left. These convert between the two for the views.
namespace DesktopGeometry {
// The desktop's height in points (the root window's).
int desktopHeight();
QRect toTopLeft(const Rect& bottomLeft);
Rect toBottomLeft(const QRect& topLeft);
} // namespace DesktopGeometry
