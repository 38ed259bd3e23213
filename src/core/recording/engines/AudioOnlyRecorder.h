#pragma once

#include "core/time/MediaTime.h"

#include <QString>

#include <exception>
#include <functional>

class AudioBuffer;

// Writes system audio and microphone of an audio-only recording into an audio package.
// Thread: prepared on a worker thread; buffers from the audio thread; the rest on the main
// thread.
class AudioOnlyRecorder {
public:
    // Exactly one of the two is set: the package's path, or why it could not be finished.
    using FinishCompletion = std::function<void(QString url, std::exception_ptr error)>;

    virtual ~AudioOnlyRecorder() = default;

    virtual void prepareRecording() = 0; // throws
    virtual void startRecording() = 0;
    virtual void startSession(MediaTime at) = 0;
    virtual void appendSystemAudioBuffer(const AudioBuffer& buffer) = 0; // throws
    virtual void appendMicrophoneBuffer(const AudioBuffer& buffer) = 0;  // throws
    // The completion runs on the main thread.
    virtual void finishRecording(FinishCompletion completion) = 0;
};
