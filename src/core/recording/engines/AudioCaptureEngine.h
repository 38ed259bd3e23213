#pragma once

#include "core/model/CaptureSources.h"
#include "core/recording/engines/SampleTiming.h"

#include <functional>
#include <optional>

// System audio (audio-only recordings) and the microphone.
// Thread: set up on a worker thread, started and stopped on the main thread; the handlers are
// called on the audio thread and must not block.
class AudioCaptureEngine {
public:
    using BufferHandler =
        std::function<void(const AudioBufferHandle& buffer, const AudioSampleTiming& timing)>;

    virtual ~AudioCaptureEngine() = default;

    virtual void setupSystemAudioCapture() = 0;
    // Returns false when the device could not be opened; the recording goes on without it.
    virtual bool setupMicrophoneCapture(const std::optional<AVCaptureDevice>& device,
                                        bool enableAEC) = 0;

    virtual void setSystemAudioHandler(BufferHandler handler) = 0;
    virtual void setMicrophoneAudioHandler(BufferHandler handler) = 0;
    // Gains applied to each stream before its handler; 1.0 passes the samples untouched.
    virtual void setVolumes(float systemAudioVolume, float microphoneVolume) {
        (void)systemAudioVolume;
        (void)microphoneVolume;
    }

    // Throws RecordingError.
    virtual void startCapture() = 0;
    virtual void stopCapture() = 0;
};
