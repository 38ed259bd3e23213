#include "platform/v4l2/V4L2DeviceCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "core/recording/ErrorDescription.h"
#include "core/support/Log.h"
#include "media/MediaWriter.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <chrono>
#include <cmath>

namespace {
// How long the capture thread rests when the device has no frame ready: well under a frame.
constexpr std::chrono::milliseconds idleWait{2};
} // namespace

V4L2DeviceCaptureEngine::V4L2DeviceCaptureEngine(CameraDeviceInfo device,
                                                 CameraInput::Options options)
    : m_device(std::move(device)), m_options(options), m_alive(std::make_shared<int>(0)) {}

V4L2DeviceCaptureEngine::~V4L2DeviceCaptureEngine() {
    cleanup();
}

void V4L2DeviceCaptureEngine::startRecording(const QString& outputURL, FinishHandler onFinish,
                                             FailHandler onFail) {
    if (m_thread.joinable())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The device is already recording"));
    m_input = CameraInput::open(m_device, m_options);
    const VideoDimensions size = m_input->dimensions();
    WriterConfiguration configuration;
    configuration.outputURL = outputURL.toStdString();
    configuration.outputFormat =
        outputURL.endsWith(QLatin1String(".mp4")) ? OutputFormat::mp4 : OutputFormat::mov;
    WriterConfiguration::VideoSettings video;
    // Encoders want even sizes; an odd line or column of a capture card's picture is cut.
    video.width = size.width & ~1;
    video.height = size.height & ~1;
    // The rate the device delivers, not the one asked for: cards often have only one.
    const double frameSeconds = m_input->frameDuration().seconds();
    video.frameRate = frameSeconds > 0 ? int(std::lround(1.0 / frameSeconds)) : m_options.frameRate;
    video.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709();
    configuration.videoSettings = video;
    auto writer = std::make_unique<MediaWriter>();
    try {
        writer->configure(configuration);
        writer->startWriting();
    } catch (const std::exception& error) {
        m_input.reset();
        throw RecordingError::fileWriteError(QString::fromStdString(describeError(error)));
    }
    m_writer = std::move(writer);
    m_onFinish = std::move(onFinish);
    m_onFail = std::move(onFail);
    m_stopRequested = false;
    m_done = false;
    logLine("📱 Recording device {} ({}x{}) to {}", m_device.name.toStdString(), size.width,
            size.height, outputURL.toStdString());
    m_thread = std::thread([this] { captureLoop(); });
}

void V4L2DeviceCaptureEngine::stopRecording() {
    m_stopRequested = true;
}

void V4L2DeviceCaptureEngine::cleanup() {
    m_onFinish = nullptr;
    m_onFail = nullptr;
    m_stopRequested = true;
    if (m_thread.joinable())
        m_thread.join();
    m_input.reset();
    m_writer.reset();
}

// Capture thread.
void V4L2DeviceCaptureEngine::captureLoop() {
    bool sessionStarted = false;
    while (!m_stopRequested.load()) {
        CameraInput::ReadResult result = m_input->read();
        if (result.status == CameraInput::Status::again) {
            std::this_thread::sleep_for(idleWait);
        } else if (result.status == CameraInput::Status::frame) {
            if (!sessionStarted) {
                m_writer->startSession(result.frame.presentationTime);
                sessionStarted = true;
            }
            m_writer->appendVideoBuffer(result.frame);
            if (previewHandler)
                previewHandler(result.frame);
        } else if (result.status == CameraInput::Status::failed) {
            m_failure = result.error.empty() ? std::string("the device stopped") : result.error;
            break;
        }
    }
    // Whatever reached the file is finished into a playable movie, even after the device went.
    try {
        if (!sessionStarted)
            throw std::runtime_error("the device delivered no picture");
        m_fileURL = QString::fromStdString(m_writer->finishWriting().string());
    } catch (const std::exception& error) {
        if (m_failure.empty())
            m_failure = describeError(error);
        m_writer->cancel();
    }
    m_done = true;
    // A report queued just before the engine was cleaned up finds it gone and does nothing.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [this, alive = std::weak_ptr<int>(m_alive)] {
            if (alive.lock())
                report();
        },
        Qt::QueuedConnection);
}

// Main thread.
void V4L2DeviceCaptureEngine::report() {
    if (m_thread.joinable())
        m_thread.join();
    // The handler may destroy this engine: take what it needs first and touch nothing after.
    if (m_failure.empty()) {
        logLine("✅ Device recording finished: {}", m_fileURL.toStdString());
        if (auto finish = std::move(m_onFinish))
            finish(m_fileURL);
        return;
    }
    logLine("❌ Device recording of {} failed: {}", m_device.name.toStdString(), m_failure);
    const RecordingError error = RecordingError::captureDeviceUnavailable();
    if (auto fail = std::move(m_onFail))
        fail(error, m_fileURL);
}
