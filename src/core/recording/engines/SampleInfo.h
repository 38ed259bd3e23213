#pragma once

#include "core/time/MediaTime.h"

#include <cstdint>
#include <memory>

class VideoFrame;

// What the core may know of a sample it passes on unopened: the media layer's frames and
// buffers are opaque here, so engines hand their timing and format alongside.
struct VideoSampleInfo {
    MediaTime presentationTime = MediaTime::invalid();
    MediaTime duration = MediaTime::invalid(); // invalid when the source gave none
    // The frame's BGRA pixels, readable while the frame lives; null when not at hand.
    const uint8_t* pixels = nullptr;
    int width = 0;
    int height = 0;
    int bytesPerRow = 0;
    // Keeps a frame beyond the handler's call (a new reference, no pixels copied); absent when
    // the engine cannot.
    std::shared_ptr<const VideoFrame> (*retain)(const VideoFrame& frame) = nullptr;
};

struct AudioSampleInfo {
    MediaTime presentationTime = MediaTime::invalid();
    int sampleRate = 0;
    int channelCount = 0;
    const char* format = "float32 planar";
};
