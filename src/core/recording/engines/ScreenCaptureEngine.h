#pragma once

#include "core/geometry/Rect.h"
#include "core/model/RecordingConfiguration.h"
#include "core/model/SCShareableContent.h"
#include "core/recording/engines/SampleTiming.h"

#include <QString>

#include <QCoro/QCoroTask>

#include <functional>
#include <memory>
#include <optional>

// What a stream captures. Each backend makes and reads its own kind; the core only hands it
// from createFilter to configureStream.
class SCContentFilter {
public:
    virtual ~SCContentFilter() = default;
}; // what the platform engine captures; made and read by the engine only

// The size of the stream the engine was configured for, in pixels.
struct SCStreamConfiguration {
    int width = 0;
    int height = 0;
    bool operator==(const SCStreamConfiguration&) const = default;
};

// Why a running stream stopped, as the capture service reports it.
struct StreamError {
    QString domain;
    int code = 0;
    QString description;
    QString userInfo; // empty when the service gave no details
    bool operator==(const StreamError&) const = default;
};

// Captures the chosen displays, area, windows or applications with their system audio.
// Thread: created and prepared on a worker thread; started, stopped and read on the main
// thread. Handlers are called on the engine's capture thread and must not block.
class ScreenCaptureEngine {
public:
    using FrameHandler =
        std::function<void(const VideoFrameHandle& frame, const VideoSampleTiming& timing)>;
    using AudioHandler =
        std::function<void(const AudioBufferHandle& buffer, const AudioSampleTiming& timing)>;
    using ErrorHandler = std::function<void(const StreamError& error)>;

    virtual ~ScreenCaptureEngine() = default;

    // Preparation, in this order: content, filter, stream.
    virtual void setAvailableContent(const SCShareableContent& content) = 0;
    // Fetches the desktop's content itself; blocks, so only off the main thread. Throws.
    virtual void updateAvailableContent() = 0;
    // Throws RecordingError when the mode's source is gone.
    virtual std::shared_ptr<SCContentFilter> createFilter(const RecordingMode& mode,
                                                          const RecordingConfiguration& config) = 0;
    virtual void configureStream(std::shared_ptr<SCContentFilter> filter, const RecordingMode& mode,
                                 ResolutionMode resolution, int frameRate, bool showCursor,
                                 BackgroundType backgroundColor, bool recordAudio) = 0;

    virtual void setFrameHandler(FrameHandler handler) = 0;
    virtual void setAudioHandler(AudioHandler handler) = 0;
    virtual void setErrorHandler(ErrorHandler handler) = 0;
    // The gain of the stream's system audio; 1.0 passes it untouched.
    virtual void setSystemAudioVolume(float volume) { (void)volume; }

    // Absent until the stream is configured.
    virtual std::optional<SCStreamConfiguration> configuration() const = 0;
    // Global points, origin bottom left; absent when the engine cannot tell.
    virtual std::optional<Rect> captureRectInScreenSpace() const = 0;

    virtual QCoro::Task<void> startCapture() = 0;
    virtual QCoro::Task<void> stopCapture() = 0;
};
