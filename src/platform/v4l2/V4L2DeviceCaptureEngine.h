#pragma once

#include "core/recording/engines/iOSDeviceCaptureEngine.h"
#include "media/AudioBuffer.h"
#include "media/VideoFrame.h"
#include "platform/v4l2/CameraInput.h"
#include "platform/v4l2/V4L2CaptureDeviceDiscovery.h"

#include <QString>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

class MediaWriter;
class PulseConnection;
class PulseRecordStream;

// Records an attached capture device (a capture card or grabber that presents a phone, tablet,
// console or camera as V4L2) straight to a movie file: its frames go to a MediaWriter as they
// come, the file's time line starting at the first one. The device's own frame rate and size are
// kept. The device's sound, when it has a source of its own, goes into the same file: both are
// stamped with the host clock, so the writer lines them up as it does screen and system audio,
// and the sound is cut where the last picture ends. When the device vanishes the file written so
// far is finished, so it stays playable, and the failure is reported.
//
// Thread: created, started, stopped and destroyed on the main thread; one capture thread reads
// the device and writes the file, and the sound arrives on the sound server's loop thread, which
// only appends (the capture thread stops the sound stream before it finishes the file). Both
// handlers run on the main thread, after the capture
// thread's work is done; either may destroy the engine.
class V4L2DeviceCaptureEngine final : public iOSDeviceCaptureEngine {
public:
    using FinishHandler = std::function<void(const QString& fileURL)>;
    // partialFileURL: the finished movie of what was recorded before the failure, or empty.
    using FailHandler =
        std::function<void(const std::exception& error, const QString& partialFileURL)>;

    // `sound`: the source to record with the picture; none records the picture alone.
    V4L2DeviceCaptureEngine(CameraDeviceInfo device, CameraInput::Options options,
                            std::optional<DeviceSound> sound = std::nullopt);
    ~V4L2DeviceCaptureEngine() override;

    // Opens the device, its sound and the file and starts recording. Throws RecordingError
    // (device or sound source missing or busy, file not writable) without calling a handler.
    void startRecording(const QString& outputURL, FinishHandler onFinish, FailHandler onFail);
    // Finishes the file; the finish handler follows (or the fail handler, if the file fails).
    void stopRecording();
    // Stops (the file is still finished) and reports nothing: the coordinator replacing the
    // engine.
    void cleanup() override;

    bool isRecording() const { return m_thread.joinable() && !m_done.load(); }
    // Called on the capture thread for every frame, for a preview; set before starting.
    std::function<void(const VideoFrame&)> previewHandler;

private:
    void captureLoop();
    // Sound server's loop thread: appends a block of the device's sound, cut at the end.
    void appendSound(const AudioBuffer& buffer);
    // Capture thread: lets the sound catch up with the last picture, then stops it.
    void finishSound(MediaTime videoEnd);
    // Main thread: joins the capture thread and calls the one handler that applies.
    void report();

    CameraDeviceInfo m_device;
    CameraInput::Options m_options;
    std::unique_ptr<CameraInput> m_input;
    std::optional<DeviceSound> m_sound;
    // Destroyed after the writer is no longer appended to: the stream is stopped (its loop
    // thread joined) by the capture thread before the file is finished, and the connection
    // outlives the stream that uses it.
    std::unique_ptr<PulseConnection> m_soundConnection;
    std::unique_ptr<PulseRecordStream> m_soundStream;
    std::unique_ptr<MediaWriter> m_writer;
    FinishHandler m_onFinish;
    FailHandler m_onFail;
    std::atomic<bool> m_stopRequested{false};
    std::atomic<bool> m_done{false};
    // Set once the first picture started the file's time line; sound before it has no place.
    std::atomic<bool> m_sessionStarted{false};
    // Host-clock nanoseconds: where the sound is cut (the end of the last picture; none until
    // the picture has stopped) and how far it has been delivered.
    std::atomic<int64_t> m_soundCutNanoseconds;
    std::atomic<int64_t> m_soundDeliveredNanoseconds;
    // Written by the capture thread before it posts its report.
    std::string m_failure;
    QString m_fileURL;
    // Queued reports hold it weakly: one that arrives after the engine is gone does nothing.
    std::shared_ptr<int> m_alive;
    std::thread m_thread;
};
