#pragma once

#include "core/geometry/Rect.h"

#include <QPoint>
#include <QRect>
#include <QSize>

// The one place where the portal's top-left desktop and stream pixels meet the core's global
// points, whose origin is the bottom left of the union of all shared monitors. Every other file
// of the Wayland backend converts through here.
namespace PortalCoordinates {

// A monitor at `position` (logical pixels, origin top left) in a desktop whose lowest edge is
// at `desktopBottom`.
inline Rect monitorToGlobal(QPoint position, QSize size, int desktopBottom) {
    return Rect(position.x(), desktopBottom - position.y() - size.height(), size.width(),
                size.height());
}

// A pixel of a stream's picture (origin top left) whose source shows `frame`. A scaled desktop
// streams more pixels than it has points, so the picture's own size scales the point back;
// an unknown picture size counts as one pixel a point.
inline Point streamPointToGlobal(QPoint pixel, QSize pictureSize, const Rect& frame) {
    const double sx = pictureSize.width() > 0 ? frame.width() / pictureSize.width() : 1.0;
    const double sy = pictureSize.height() > 0 ? frame.height() / pictureSize.height() : 1.0;
    return Point{frame.minX() + pixel.x() * sx, frame.maxY() - pixel.y() * sy};
}

// An area of a monitor in points from the monitor's bottom left, as the pixels of the monitor's
// picture it covers (origin top left), kept inside the picture.
inline QRect areaToPicture(const Rect& area, QSize monitor) {
    const QRect crop(int(area.minX()), int(monitor.height() - area.height() - area.minY()),
                     int(area.width()), int(area.height()));
    return crop.intersected(QRect(QPoint(0, 0), monitor));
}

} // namespace PortalCoordinates
