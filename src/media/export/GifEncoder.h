#pragma once

#include "media/VideoFrame.h"

#include <filesystem>
#include <memory>
#include <string>

// An animated GIF for sharing a short clip: frames scaled to at most 640 pixels wide, one
// palette made from the whole clip, dithered into it. The palette needs every frame before the
// first can be written, so the scaled clip is held in memory until `finish`: short clips only.
//
// Thread: one at a time (the export writer's worker).
class GifEncoder final {
public:
    static std::unique_ptr<GifEncoder> create(const std::filesystem::path& path, int width,
                                              int height, std::string& error);
    ~GifEncoder();
    GifEncoder(const GifEncoder&) = delete;
    GifEncoder& operator=(const GifEncoder&) = delete;

    // pts in 1/90000 s. 0 or a negative AVERROR.
    int add(const VideoFrame& frame, int64_t pts);
    // Makes the palette, writes every frame and closes the file.
    int finish();

private:
    struct State;
    GifEncoder();
    int drainGraph();

    std::unique_ptr<State> m_state;
};
