#pragma once

// An sRGB colour with straight alpha, each component 0...1, as stored in metadata and settings.
struct CodableColor {
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
    double alpha = 1.0;
    bool operator==(const CodableColor&) const = default;
};
