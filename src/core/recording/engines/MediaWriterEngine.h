#pragma once

#include "core/model/WriterConfiguration.h"
#include "core/time/MediaTime.h"

#include <QString>

#include <QCoro/QCoroTask>

#include <optional>

class VideoFrame;
class AudioBuffer;

// Writes one movie file. Appends never throw and never block: what cannot be written is
// refused and counted, and a failure is latched in hasFailed().
// Thread: configured on a worker thread; appends from capture threads; the rest on the main
// thread.
class MediaWriterEngine {
public:
    virtual ~MediaWriterEngine() = default;

    // Throw RecordingError or the writer's own error.
    virtual void configure(const WriterConfiguration& configuration) = 0;
    virtual void startWriting() = 0;
    virtual void startSession(MediaTime at) = 0;

    virtual bool isWriting() const = 0;
    virtual bool hasFailed() const = 0;
    // What made the writer fail, when it knows.
    virtual std::optional<QString> lastError() const { return std::nullopt; }

    virtual bool appendVideoBuffer(const VideoFrame& frame) = 0;
    virtual bool appendVideoPixelBuffer(const VideoFrame& frame, MediaTime pts) = 0;
    virtual bool appendAudioBuffer(const AudioBuffer& buffer, int track,
                                   bool isMicrophoneAudio = false) = 0;

    // Accumulates time that later samples are moved back by (a pause, a stream outage).
    virtual void addTimeOffset(MediaTime offset) = 0;

    virtual std::optional<MediaTime> sessionStartTimeValue() const = 0;
    virtual MediaTime currentTimeOffset() const = 0;
    virtual std::optional<MediaTime> lastPresentationTime() const = 0;

    // Returns the file's path; throws when the file could not be completed.
    virtual QCoro::Task<QString> finishWriting() = 0;
    // Stops writing and removes the file.
    virtual void cancel() = 0;

    // The file being written; absent when the writer cannot tell.
    virtual std::optional<QString> outputURL() const { return std::nullopt; }
    // For a recording that must end on an error: stops writing and keeps what reached the disk
    // as a playable "<name> (Recovered).<ext>" beside the file, with the metadata found beside
    // it cut to the same length. Returns the new file's path; absent when nothing playable was
    // written or the writer cannot salvage. Never throws.
    virtual QCoro::Task<std::optional<QString>> salvage() { co_return std::nullopt; }
};
