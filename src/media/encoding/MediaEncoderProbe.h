#pragma once

#include "core/recording/engines/EncoderProbe.h"

// Opens the H.264 encoder a writer would pick at a size, and closes it again. Thread-safe.
class MediaEncoderProbe final : public EncoderProbe {
public:
    bool canOpenH264Encoder(int width, int height) override;
};
