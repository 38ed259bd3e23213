#pragma once

#include <cstddef>
#include <string>

// The knobs of real-time encoding that were chosen by measurement on a two-core machine (see
// bench/MediaWriterBench.cpp); a benchmark may vary them, recordings use the defaults.
struct EncoderTuning {
    // x264 "ultrafast" keeps 1080p60 under a third of a core on this class of machine; every
    // slower preset costs more CPU than the capture can spare at 60 frames/s.
    std::string softwareH264Preset = "ultrafast";
    // libx265 does not reach 60 frames/s of 1080p on two cores even at "ultrafast"; anything
    // slower only drops more frames.
    std::string softwareHEVCPreset = "ultrafast";
    // prores_aw encodes 4444 with alpha about four times faster than prores_ks here.
    std::string proResEncoder = "prores_aw";
    bool allowHardware = true;
    // Frames waiting for the encoder: about 130 ms at 60 frames/s, enough to ride out a slow
    // keyframe or a disk sync without holding more than a few pooled frames.
    size_t videoQueueDepth = 8;
    // Audio blocks are small and frequent (10-20 ms each); a second of them.
    size_t audioQueueDepth = 96;
};
