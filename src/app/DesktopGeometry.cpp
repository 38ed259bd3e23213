#include "app/DesktopGeometry.h"

#include <QGuiApplication>
#include <QScreen>

#include <cmath>

namespace DesktopGeometry {

int desktopHeight() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->virtualGeometry().bottom() + 1 : 0;
}

QRect toTopLeft(const Rect& r) {
    const int height = int(std::lround(r.size.height));
    return QRect(int(std::lround(r.origin.x)),
                 desktopHeight() - int(std::lround(r.origin.y)) - height,
                 int(std::lround(r.size.width)), height);
}

Rect toBottomLeft(const QRect& r) {
    return Rect(r.x(), desktopHeight() - r.y() - r.height(), r.width(), r.height());
}

} // namespace DesktopGeometry
