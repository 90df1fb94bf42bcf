#pragma once

namespace sonra {

/// A place on the desktop in logical pixels, origin at the top left of the primary screen, y
/// downward.
struct Point {
    double x = 0;
    double y = 0;

    bool operator==(const Point&) const = default;
};

/// In logical pixels.
struct Size {
    double width = 0;
    double height = 0;

    bool operator==(const Size&) const = default;
};

/// `origin` is the top left corner.
struct Rect {
    Point origin;
    Size size;

    bool operator==(const Rect&) const = default;
};

}  // namespace sonra
