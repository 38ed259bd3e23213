#include "platform/v4l2/V4L2DeviceCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "core/recording/ErrorDescription.h"
#include "core/support/Log.h"
#include "media/MediaWriter.h"
#include "platform/pulse/PulseConnection.h"
#include "platform/pulse/PulseRecordStream.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>

namespace {
// How long the capture thread rests when the device has no frame ready: well under a frame.
constexpr std::chrono::milliseconds idleWait{2};
// How long the sound may take to reach the end of the last picture after the picture stopped:
// the server delivers every 20 ms, so this is only reached when the source has stalled.
constexpr std::chrono::milliseconds soundCatchUpBound{500};
constexpr int64_t noCut = std::numeric_limits<int64_t>::max();
constexpr int32_t nanosecondScale = 1'000'000'000;

int64_t nanosecondsOf(MediaTime time) {
    return time.convertScale(nanosecondScale).value;
}
} // namespace

V4L2DeviceCaptureEngine::V4L2DeviceCaptureEngine(CameraDeviceInfo device,
                                                 CameraInput::Options options,
                                                 std::optional<DeviceSound> sound)
    : m_device(std::move(device)), m_options(options), m_sound(std::move(sound)),
      m_soundCutNanoseconds(noCut), m_soundDeliveredNanoseconds(0),
      m_alive(std::make_shared<int>(0)) {}

V4L2DeviceCaptureEngine::~V4L2DeviceCaptureEngine() {
    cleanup();
}

void V4L2DeviceCaptureEngine::startRecording(const QString& outputURL, FinishHandler onFinish,
                                             FailHandler onFail) {
    if (m_thread.joinable())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The device is already recording"));
    m_input = CameraInput::open(m_device, m_options);
    if (m_sound) {
        try {
            m_soundConnection = std::make_unique<PulseConnection>("tavelquiston device sound");
            const auto source = m_soundConnection->source(m_sound->sourceName);
            if (!source)
                throw std::runtime_error("the sound source \"" + m_sound->sourceName +
                                         "\" is gone");
            m_soundStream = std::make_unique<PulseRecordStream>(
                *m_soundConnection, *source, "Device sound",
                [this](const AudioBuffer& buffer) { appendSound(buffer); });
        } catch (const std::runtime_error& error) {
            m_soundConnection.reset();
            m_input.reset();
            logLine("❌ Device sound of {}: {}", m_device.name.toStdString(), error.what());
            throw RecordingError::captureDeviceUnavailable();
        }
    }
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
        m_soundStream.reset();
        m_soundConnection.reset();
        m_input.reset();
        throw RecordingError::fileWriteError(QString::fromStdString(describeError(error)));
    }
    m_writer = std::move(writer);
    m_onFinish = std::move(onFinish);
    m_onFail = std::move(onFail);
    m_stopRequested = false;
    m_done = false;
    m_sessionStarted = false;
    m_soundCutNanoseconds = noCut;
    m_soundDeliveredNanoseconds = 0;
    if (m_soundStream) {
        try {
            m_soundStream->start();
        } catch (const std::runtime_error& error) {
            logLine("❌ Device sound of {}: {}", m_device.name.toStdString(), error.what());
            m_writer->cancel();
            m_writer.reset();
            m_soundStream.reset();
            m_soundConnection.reset();
            m_input.reset();
            throw RecordingError::captureDeviceUnavailable();
        }
    }
    logLine("📱 Recording device {} ({}x{}{}) to {}", m_device.name.toStdString(), size.width,
            size.height,
            m_sound ? " with sound from " + m_sound->description.toStdString() : std::string(),
            outputURL.toStdString());
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
    m_soundStream.reset();
    m_soundConnection.reset();
    m_input.reset();
    m_writer.reset();
}

// Capture thread.
void V4L2DeviceCaptureEngine::captureLoop() {
    bool sessionStarted = false;
    MediaTime videoEnd = MediaTime::invalid();
    while (!m_stopRequested.load()) {
        CameraInput::ReadResult result = m_input->read();
        if (result.status == CameraInput::Status::again) {
            std::this_thread::sleep_for(idleWait);
        } else if (result.status == CameraInput::Status::frame) {
            if (!sessionStarted) {
                m_writer->startSession(result.frame.presentationTime);
                sessionStarted = true;
                m_sessionStarted = true;
            }
            m_writer->appendVideoBuffer(result.frame);
            videoEnd = result.frame.presentationTime + (result.frame.duration.isNumeric()
                                                            ? result.frame.duration
                                                            : m_input->frameDuration());
            if (previewHandler)
                previewHandler(result.frame);
        } else if (result.status == CameraInput::Status::failed) {
            m_failure = result.error.empty() ? std::string("the device stopped") : result.error;
            break;
        }
    }
    finishSound(videoEnd);
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

// Sound server's loop thread.
void V4L2DeviceCaptureEngine::appendSound(const AudioBuffer& buffer) {
    // Before the first picture the file has no time line to put sound on; the writer would refuse
    // it anyway.
    if (!m_sessionStarted.load() || buffer.isNull())
        return;
    const int64_t start = nanosecondsOf(buffer.presentationTime);
    const int64_t end = nanosecondsOf(buffer.presentationTime + buffer.duration());
    const int64_t cut = m_soundCutNanoseconds.load();
    m_soundDeliveredNanoseconds = end;
    if (start >= cut)
        return;
    if (end <= cut) {
        m_writer->appendAudioBuffer(buffer, 0);
        return;
    }
    // The block reaches past the last picture: only its part up to there belongs to the movie.
    const int kept = int((cut - start) * buffer.sampleRate() / nanosecondScale);
    if (kept <= 0)
        return;
    AudioBuffer head = AudioBuffer::allocate(buffer.channelCount(), buffer.sampleRate(), kept,
                                             buffer.presentationTime);
    if (head.isNull())
        return;
    for (int channel = 0; channel < buffer.channelCount(); ++channel)
        std::memcpy(head.mutableChannelData(channel), buffer.channelData(channel),
                    size_t(kept) * sizeof(float));
    m_writer->appendAudioBuffer(head, 0);
}

// Capture thread.
void V4L2DeviceCaptureEngine::finishSound(MediaTime videoEnd) {
    if (!m_soundStream)
        return;
    if (videoEnd.isNumeric()) {
        const int64_t cut = nanosecondsOf(videoEnd);
        m_soundCutNanoseconds = cut;
        const auto deadline = std::chrono::steady_clock::now() + soundCatchUpBound;
        while (m_soundDeliveredNanoseconds.load() < cut &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(idleWait);
    } else {
        m_soundCutNanoseconds = std::numeric_limits<int64_t>::min();
    }
    // After this no block arrives, so the writer can be finished.
    m_soundStream->stop();
}

// Main thread.
void V4L2DeviceCaptureEngine::report() {
    if (m_thread.joinable())
        m_thread.join();
    // The handler may destroy this engine: take what it needs first and touch nothing after,
    // the file's path included (the handler gets a copy that outlives the engine).
    const QString fileURL = m_fileURL;
    if (m_failure.empty()) {
        logLine("✅ Device recording finished: {}", fileURL.toStdString());
        if (auto finish = std::move(m_onFinish))
            finish(fileURL);
        return;
    }
    logLine("❌ Device recording of {} failed: {}", m_device.name.toStdString(), m_failure);
    const RecordingError error = RecordingError::captureDeviceUnavailable();
    if (auto fail = std::move(m_onFail))
        fail(error, fileURL);
}
