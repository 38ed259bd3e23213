#pragma once

#include "core/recording/engines/iOSDeviceCaptureEngine.h"
#include "media/VideoFrame.h"
#include "platform/v4l2/CameraInput.h"

#include <QString>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

class MediaWriter;

// Records an attached capture device (a capture card or grabber that presents a phone, tablet,
// console or camera as V4L2) straight to a movie file: its frames go to a MediaWriter as they
// come, the file's time line starting at the first one. The device's own frame rate and size are
// kept. When the device vanishes the file written so far is finished, so it stays playable, and
// the failure is reported.
//
// Thread: created, started, stopped and destroyed on the main thread; one capture thread reads
// the device and writes the file. Both handlers run on the main thread, after the capture
// thread's work is done; either may destroy the engine.
class V4L2DeviceCaptureEngine final : public iOSDeviceCaptureEngine {
public:
    using FinishHandler = std::function<void(const QString& fileURL)>;
    // partialFileURL: the finished movie of what was recorded before the failure, or empty.
    using FailHandler =
        std::function<void(const std::exception& error, const QString& partialFileURL)>;

    V4L2DeviceCaptureEngine(CameraDeviceInfo device, CameraInput::Options options);
    ~V4L2DeviceCaptureEngine() override;

    // Opens the device and the file and starts recording. Throws RecordingError (device missing
    // or busy, file not writable) without calling a handler.
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
    // Main thread: joins the capture thread and calls the one handler that applies.
    void report();

    CameraDeviceInfo m_device;
    CameraInput::Options m_options;
    std::unique_ptr<CameraInput> m_input;
    std::unique_ptr<MediaWriter> m_writer;
    FinishHandler m_onFinish;
    FailHandler m_onFail;
    std::atomic<bool> m_stopRequested{false};
    std::atomic<bool> m_done{false};
    // Written by the capture thread before it posts its report.
    std::string m_failure;
    QString m_fileURL;
    // Queued reports hold it weakly: one that arrives after the engine is gone does nothing.
    std::shared_ptr<int> m_alive;
    std::thread m_thread;
};
