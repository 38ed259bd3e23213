#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// The knobs of real-time encoding that were chosen by measurement on a two-core machine (see
// bench/MediaWriterBench.cpp); a benchmark may vary them, recordings use the defaults.
struct EncoderTuning {
    // x264 "ultrafast" keeps 1080p60 under a third of a core on this class of machine; every
    // slower preset costs more CPU than the capture can spare at 60 frames/s.
    std::string softwareH264Preset = "ultrafast";
    // x264 spreads its work over threads, which costs about a tenth more CPU in all: measured
    // with a full-screen moving picture at 1080p60, 0.50-0.53 CPU seconds per recorded second on
    // one thread against 0.49-0.58 on its automatic threads, where ffmpeg with the same settings
    // took 0.74-0.91. One thread keeps up with 1080p60 at about half a core, so streams up to
    // this many pixels a second get one thread, larger or faster ones x264's own choice.
    int64_t singleThreadH264PixelRate = 1920LL * 1080 * 60;
    // Empty for none. "zerolatency" makes x264 split each frame across threads instead of
    // keeping several frames in flight, which costs less CPU here and holds no frames back
    // (less to lose in a crash).
    std::string softwareH264Tune;
    // libx265 does not reach 60 frames/s of 1080p on two cores even at "ultrafast"; anything
    // slower only drops more frames.
    std::string softwareHEVCPreset = "ultrafast";
    // prores_aw encodes 4444 with alpha about four times faster than prores_ks here.
    std::string proResEncoder = "prores_aw";
    bool allowHardware = true;
    // Only this hardware family ("vaapi" or "nvenc") before software; empty: whichever works.
    std::string preferredHardware;
    // Exports: constant quality for x264/x265 (lower is better); absent: the bit rate or the
    // encoder's default.
    std::optional<int> constantRateFactor;
    // Frames waiting for the encoder: 200 ms at 60 frames/s. Measured at 1080p60 with x264 on two
    // busy cores: 4 refused 3% of the frames, 8 refused none to 0.7% depending on the other load,
    // 16 none; each queued frame holds one capture buffer (8 MB at 1080p), so 12 is the middle.
    size_t videoQueueDepth = 12;
    // Audio blocks are small (8 KB for 20 ms) and frequent, and with the microphone and the
    // system's sound on one track they come twice as often. A gap in the sound is worse than a
    // repeated picture: four seconds of both sources, 3 MB, ride out a writer starved by other
    // work (a 20-minute recording beside busy builds lost a second at a time with one second).
    size_t audioQueueDepth = 400;
};
