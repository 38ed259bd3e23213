#pragma once

// Asks the machine whether the H.264 encoder a writer would use opens at a size. The media
// layer provides the real one (the hardware encoder where the machine has one).
// Thread-safe.
class EncoderProbe {
public:
    virtual ~EncoderProbe() = default;
    virtual bool canOpenH264Encoder(int width, int height) = 0;
};
