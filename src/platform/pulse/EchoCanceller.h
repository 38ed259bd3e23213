#pragma once

#include "media/AudioBuffer.h"

#include <memory>
#include <vector>

// Removes from the microphone what the speakers played: the system audio, given as the
// reference, is taken out of the microphone by the WebRTC audio processing library's echo
// canceller. Works in 10 ms steps on one channel at 48 kHz; the result is the same on both
// channels. Thread: one (the sound server's loop thread, where both streams arrive).
class EchoCanceller final {
public:
    // Absent when this build has no echo canceller.
    static std::unique_ptr<EchoCanceller> create();
    ~EchoCanceller();
    EchoCanceller(const EchoCanceller&) = delete;
    EchoCanceller& operator=(const EchoCanceller&) = delete;

    // What the speakers play, as it is played.
    void addReference(const AudioBuffer& buffer);
    // The microphone's block without the echo: as many samples as whole 10 ms steps allow, the
    // rest kept for the next block, stamped at the time of its first sample. Null when no whole
    // step is ready yet.
    AudioBuffer process(const AudioBuffer& microphone);

private:
    struct Processor;
    explicit EchoCanceller(std::unique_ptr<Processor> processor);

    std::unique_ptr<Processor> m_processor;
    std::vector<float> m_reference;  // mono, not yet analysed
    std::vector<float> m_microphone; // mono, not yet processed
};
