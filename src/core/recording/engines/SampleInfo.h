#pragma once

#include "core/time/MediaTime.h"

// What the core may know of a sample it passes on unopened: the media layer's frames and
// buffers are opaque here, so engines hand their timing and format alongside.
struct VideoSampleInfo {
    MediaTime presentationTime = MediaTime::invalid();
    MediaTime duration = MediaTime::invalid(); // invalid when the source gave none
};

struct AudioSampleInfo {
    MediaTime presentationTime = MediaTime::invalid();
    int sampleRate = 0;
    int channelCount = 0;
    const char* format = "float32 planar";
};
