#pragma once

#include <algorithm>

// Plain geometry values in points or pixels. Equality is exact, field by field, because
// recording modes and metadata compare rectangles exactly.
struct Point {
    double x = 0.0;
    double y = 0.0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0.0;
    double height = 0.0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    Point origin;
    Size size;

    Rect() = default;
    Rect(Point origin, Size size) : origin(origin), size(size) {}
    Rect(double x, double y, double width, double height) : origin{x, y}, size{width, height} {}

    double minX() const { return std::min(origin.x, origin.x + size.width); }
    double minY() const { return std::min(origin.y, origin.y + size.height); }
    double maxX() const { return std::max(origin.x, origin.x + size.width); }
    double maxY() const { return std::max(origin.y, origin.y + size.height); }
    double midX() const { return origin.x + size.width / 2.0; }
    double midY() const { return origin.y + size.height / 2.0; }
    double width() const { return size.width < 0 ? -size.width : size.width; }
    double height() const { return size.height < 0 ? -size.height : size.height; }
    bool isEmpty() const { return size.width == 0.0 || size.height == 0.0; }
    bool contains(Point p) const {
        return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
    }

    bool operator==(const Rect&) const = default;
};
