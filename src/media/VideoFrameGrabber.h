#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One decoded picture of a movie file, as BGRA bytes with straight, opaque alpha.
struct GrabbedVideoFrame {
    int width = 0;
    int height = 0;
    double time = 0.0;              // seconds, the frame's own presentation time
    std::vector<std::uint8_t> bgra; // width * 4 bytes per row, no padding
};

// The frame shown at `seconds` of the file's first video stream: the last one that starts at
// or before that time (the first frame for earlier times). Nothing, with `error` naming the
// file and the reason, when the file cannot be opened or decoded. Thread-safe; blocking.
std::optional<GrabbedVideoFrame> grabVideoFrame(const QString& path, double seconds,
                                                std::string* error);
