#pragma once

#include "core/time/MediaTime.h"

#include <memory>

class VideoFrame;
class AudioBuffer;

// Frames and audio cross the core unopened: the media layer's types, shared and read-only, so
// whoever keeps one (the window pump, a writer's queue) holds it without copying pixels.
using VideoFrameHandle = std::shared_ptr<const VideoFrame>;
using AudioBufferHandle = std::shared_ptr<const AudioBuffer>;

// What the core reads of a frame it passes on: its timing only.
struct VideoSampleTiming {
    MediaTime presentationTime = MediaTime::invalid();
    MediaTime duration = MediaTime::invalid(); // invalid when the source gave none
    bool operator==(const VideoSampleTiming&) const = default;
};

// The timing and format of an audio block, for the frame path's logs; the samples are always
// float planar.
struct AudioSampleTiming {
    MediaTime presentationTime = MediaTime::invalid();
    int sampleRate = 0;
    int channelCount = 0;
    bool operator==(const AudioSampleTiming&) const = default;
};
