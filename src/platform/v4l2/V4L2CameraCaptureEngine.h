#pragma once

#include "core/recording/engines/CameraCaptureEngine.h"
#include "media/VideoFrame.h"
#include "platform/v4l2/CameraInput.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

// The camera on V4L2 (or the test camera): serves frames to a preview through the frame
// handler, and in a separate-layers recording writes them to the camera layer, whose session
// starts at the screen layer's first frame so the two files share one time line.
//
// Thread: set-up, start, stop and the settings on the main thread (or the preparation's worker
// before the engine is shared); startWriterSessionIfNeeded on the screen's capture thread.
// Frames are read, converted and delivered on the engine's own capture thread; the frame handler
// runs there and must not block. A failing device latches: one warning, frames stop, the
// recording goes on.
class V4L2CameraCaptureEngine final : public CameraCaptureEngine {
public:
    using FrameHandler = std::function<void(const VideoFrame& frame)>;

    explicit V4L2CameraCaptureEngine(CameraInput::Options options = {});
    ~V4L2CameraCaptureEngine() override;

    // Throws RecordingError naming the device when it is missing, busy or unusable.
    void setupCamera(const AVCaptureDevice& device) override;
    std::optional<VideoDimensions> activeVideoDimensions() const override;
    void configureSeparateWriter(MediaWriterEngine* writer) override;
    void clearSeparateWriter();
    MediaWriterEngine* getCameraWriter() const { return m_cameraWriter.load(); }

    void startCapture() override;
    void stopCapture() override;
    bool isCapturing() const override { return m_isCapturing.load(); }
    void cleanup() override;

    void setRecordingPaused(bool paused) override { m_isRecordingPaused.store(paused); }
    void addTimeOffset(MediaTime offset) override;

    bool isSeparateLayerRecording() const override { return m_isSeparateLayerRecording.load(); }
    std::optional<MediaTime> syncedSessionStartTime() const override;
    void startWriterSessionIfNeeded(MediaTime at) override;

    // Called on the capture thread for every frame, paused or not. Set before startCapture.
    void setFrameHandler(FrameHandler handler) { m_frameHandler = std::move(handler); }
    // Mirrors the previews; the recorded layer keeps the camera's own orientation.
    void setFlipped(bool flipped) { m_isFlipped.store(flipped); }
    bool isFlipped() const { return m_isFlipped.load(); }

    int cameraFrameCount() const { return m_cameraFrameCount.load(); }
    bool hasFailed() const { return m_hasFailed.load(); }
    // Calls over the process's life; the first few are logged.
    static int delegateCallCount() { return s_delegateCallCount.load(); }

private:
    void captureLoop();
    void captureOutput(const VideoFrame& frame);
    bool appendToSeparateWriter(const VideoFrame& frame);
    void appendOpeningFrame(MediaWriterEngine& writer, const VideoFrame& first, MediaTime start);
    void latchFailure(const std::string& error);

    const CameraInput::Options m_options;
    std::unique_ptr<CameraInput> m_input; // owned by the capture thread while it runs
    std::optional<AVCaptureDevice> m_currentDevice;
    FrameHandler m_frameHandler;
    std::thread m_thread;
    std::atomic<bool> m_stopRequested{false};

    std::atomic<bool> m_isCapturing{false};
    std::atomic<bool> m_isRecordingPaused{false};
    std::atomic<bool> m_isFlipped{false};
    std::atomic<bool> m_hasFailed{false};
    std::atomic<MediaWriterEngine*> m_cameraWriter{nullptr};
    std::atomic<bool> m_isSeparateLayerRecording{false};
    std::atomic<int> m_cameraFrameCount{0};
    std::atomic<bool> m_cameraWriterFailedLogged{false};
    // Capture thread only: the newest frame that came before the screen's first, and whether the
    // layer has its first frame. A new writer sets m_openingPending and the capture thread resets
    // both.
    VideoFrame m_waitingFrame;
    bool m_hasAppended = false;
    std::atomic<bool> m_openingPending{false};

    // Guards only sessionStarted and the synced start time, so that two callers can never start
    // the camera's session twice; the writer call itself runs outside it.
    mutable std::mutex m_sessionLock;
    bool m_sessionStarted = false;
    std::optional<MediaTime> m_syncedSessionStartTime;

    static std::atomic<int> s_delegateCallCount;
};
