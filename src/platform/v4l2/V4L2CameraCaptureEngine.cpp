#include "platform/v4l2/V4L2CameraCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "core/recording/ErrorDescription.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/support/Log.h"

#include <chrono>

std::atomic<int> V4L2CameraCaptureEngine::s_delegateCallCount{0};

namespace {
// How long the capture thread rests when the device has no frame ready: well under a frame
// period at 60 frames/s, and cheap.
constexpr auto idleWait = std::chrono::milliseconds(2);
} // namespace

V4L2CameraCaptureEngine::V4L2CameraCaptureEngine(CameraInput::Options options)
    : m_options(options) {}

V4L2CameraCaptureEngine::~V4L2CameraCaptureEngine() {
    stopCapture();
}

void V4L2CameraCaptureEngine::setupCamera(const AVCaptureDevice& device) {
    std::optional<CameraDeviceInfo> info = V4L2CameraDiscovery::findCamera(device.uniqueID);
    if (!info)
        info = V4L2CameraDiscovery::findCamera(device.localizedName);
    if (!info)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Camera %1 is not connected")
                .arg(device.uniqueID.isEmpty() ? device.localizedName : device.uniqueID));
    stopCapture();
    m_input.reset();
    m_input = CameraInput::open(*info, m_options);
    m_currentDevice = device;
    m_hasFailed.store(false);
    logLine("Camera setup completed with device: {}", info->name.toStdString());
}

std::optional<VideoDimensions> V4L2CameraCaptureEngine::activeVideoDimensions() const {
    if (!m_input)
        return std::nullopt;
    return m_input->dimensions();
}

void V4L2CameraCaptureEngine::configureSeparateWriter(MediaWriterEngine* writer) {
    m_cameraWriter.store(writer);
    {
        std::lock_guard lock(m_sessionLock);
        m_syncedSessionStartTime.reset();
        m_sessionStarted = false;
    }
    m_cameraFrameCount.store(0);
    m_cameraWriterFailedLogged.store(false);
    m_openingPending.store(true);
    m_isSeparateLayerRecording.store(true);
    logLine("📹 Camera configured for separate layer recording");
}

void V4L2CameraCaptureEngine::clearSeparateWriter() {
    m_isSeparateLayerRecording.store(false);
    m_cameraWriter.store(nullptr);
    {
        std::lock_guard lock(m_sessionLock);
        m_syncedSessionStartTime.reset();
        m_sessionStarted = false;
    }
    m_cameraFrameCount.store(0);
    m_cameraWriterFailedLogged.store(false);
}

void V4L2CameraCaptureEngine::startCapture() {
    if (m_isCapturing.load() || !m_input)
        return;
    m_stopRequested.store(false);
    m_isCapturing.store(true);
    m_thread = std::thread([this] { captureLoop(); });
}

void V4L2CameraCaptureEngine::stopCapture() {
    m_stopRequested.store(true);
    if (m_thread.joinable())
        m_thread.join();
    m_isCapturing.store(false);
}

void V4L2CameraCaptureEngine::cleanup() {
    stopCapture();
    clearSeparateWriter();
    // Closing the device lets the next opener (the overlay, the next recording) have it.
    m_input.reset();
    m_currentDevice.reset();
    logLine("Camera engine cleaned up");
}

void V4L2CameraCaptureEngine::addTimeOffset(MediaTime offset) {
    if (MediaWriterEngine* writer = m_cameraWriter.load())
        writer->addTimeOffset(offset);
}

std::optional<MediaTime> V4L2CameraCaptureEngine::syncedSessionStartTime() const {
    std::lock_guard lock(m_sessionLock);
    return m_syncedSessionStartTime;
}

void V4L2CameraCaptureEngine::startWriterSessionIfNeeded(MediaTime at) {
    MediaWriterEngine* writer = m_cameraWriter.load();
    if (!writer || writer->hasFailed())
        return;
    bool starts = false;
    {
        std::lock_guard lock(m_sessionLock);
        if (!m_sessionStarted) {
            m_sessionStarted = true;
            starts = true;
        }
    }
    if (!starts)
        return;
    try {
        writer->startSession(at);
    } catch (const std::exception& error) {
        {
            std::lock_guard lock(m_sessionLock);
            m_sessionStarted = false;
        }
        logLine("❌ Failed to start camera writer session: {}", describeError(error));
        return;
    }
    {
        std::lock_guard lock(m_sessionLock);
        m_syncedSessionStartTime = at;
    }
    logLine("✅ Camera writer session started at synced PTS: {}", at.seconds());
}

void V4L2CameraCaptureEngine::captureLoop() {
    CameraInput& input = *m_input;
    while (!m_stopRequested.load()) {
        CameraInput::ReadResult result = input.read();
        switch (result.status) {
        case CameraInput::Status::frame:
            captureOutput(result.frame);
            break;
        case CameraInput::Status::again:
            std::this_thread::sleep_for(idleWait);
            break;
        case CameraInput::Status::dropped:
            logLine("Camera frame dropped");
            break;
        case CameraInput::Status::failed:
            latchFailure(result.error);
            return;
        }
    }
}

void V4L2CameraCaptureEngine::latchFailure(const std::string& error) {
    if (m_hasFailed.exchange(true))
        return;
    const std::string name =
        m_currentDevice ? m_currentDevice->localizedName.toStdString() : std::string("camera");
    logLine("⚠️ Camera {} stopped delivering frames ({}); the screen recording goes on", name,
            error);
}

void V4L2CameraCaptureEngine::captureOutput(const VideoFrame& frame) {
    const int count = s_delegateCallCount.fetch_add(1) + 1;
    if (count <= 3)
        logLine("📷 Camera delegate received frame #{}, isSeparateLayerRecording: {}", count,
                m_isSeparateLayerRecording.load());
    if (m_isSeparateLayerRecording.load() && !m_isRecordingPaused.load())
        appendToSeparateWriter(frame);
    if (m_frameHandler)
        m_frameHandler(frame);
}

void V4L2CameraCaptureEngine::appendOpeningFrame(MediaWriterEngine& writer, const VideoFrame& first,
                                                 MediaTime start) {
    // A movie file begins at its first frame, so a camera layer whose first frame lands after
    // the screen's would play early against the screen by that much. The picture the camera
    // showed when the screen started fills the moment: the last frame that waited, or else the
    // first frame itself (held until the second, for a camera slower to start than the screen).
    VideoFrame opening = std::move(m_waitingFrame);
    m_waitingFrame = VideoFrame();
    if (!(first.presentationTime > start))
        return;
    if (opening.isNull())
        opening = first;
    writer.appendVideoBuffer(
        opening.withTiming(start, first.presentationTime - start, MediaTime::invalid()));
}

bool V4L2CameraCaptureEngine::appendToSeparateWriter(const VideoFrame& frame) {
    // A prewarmed camera is already running when its writer arrives: the capture thread forgets
    // what it held for the previous writer itself.
    if (m_openingPending.exchange(false)) {
        m_waitingFrame = VideoFrame();
        m_hasAppended = false;
    }
    MediaWriterEngine* writer = m_cameraWriter.load();
    if (!writer) {
        if (m_cameraFrameCount.load() == 0)
            logLine("⚠️ Camera writer is nil, cannot append frame");
        return false;
    }
    if (writer->hasFailed()) {
        if (!m_cameraWriterFailedLogged.exchange(true))
            logLine("⚠️ Camera writer failed; dropping camera frames");
        return false;
    }
    const int count = m_cameraFrameCount.fetch_add(1) + 1;
    bool started = false;
    std::optional<MediaTime> synced;
    {
        std::lock_guard lock(m_sessionLock);
        started = m_sessionStarted;
        synced = m_syncedSessionStartTime;
    }
    // Frames before the screen's first frame are thrown away: no camera frame may precede the
    // screen on the shared time line.
    if (!synced) {
        if (count < 4)
            logLine("⏳ Camera frame #{}: waiting for screen session to start...", count);
        m_waitingFrame = frame;
        return false;
    }
    if (!started || !writer->isWriting()) {
        if (count < 4)
            logLine("⚠️ Cannot append camera frame: session not started");
        return false;
    }
    if (!m_hasAppended) {
        m_hasAppended = true;
        appendOpeningFrame(*writer, frame, *synced);
    }
    const bool appended = writer->appendVideoBuffer(frame);
    if (count < 6)
        logLine("📹 Camera frame #{} append: {} (PTS: {})", count, appended ? "✅" : "❌",
                frame.presentationTime.seconds());
    return appended;
}
