#include "core/recording/RecordingPreparation.h"

#include "core/model/AlphaVideoCodec.h"

#include "core/async/DetachedTask.h"
#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/EncoderProbe.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/settings/UserDefaults.h"
#include "core/support/Formatters.h"
#include "core/support/Log.h"

#include <QDir>

#include <algorithm>
#include <chrono>

namespace {
WriterConfiguration::AudioSettings defaultAudioSettings() {
    return {Constants::defaultSampleRate, Constants::defaultChannelCount, 128'000,
            WriterConfiguration::AudioFormat::aac};
}

// The main movie's audio in the encoder the configuration names; an unknown name keeps aac.
WriterConfiguration::AudioSettings configuredAudioSettings(const RecordingConfiguration& config) {
    WriterConfiguration::AudioSettings settings = defaultAudioSettings();
    for (auto format :
         {WriterConfiguration::AudioFormat::alac, WriterConfiguration::AudioFormat::flac,
          WriterConfiguration::AudioFormat::opus})
        if (config.audioEncoder.toStdString() == rawValue(format))
            settings.format = format;
    return settings;
}

const char* yesNo(bool value) {
    return value ? "true" : "false";
}
} // namespace

// Each named step's time since the previous step and since the start.
class RecordingPreparation::Timings {
public:
    void record(const char* name) {
        const auto now = std::chrono::steady_clock::now();
        const auto ms = [](auto d) { return std::chrono::duration<double, std::milli>(d).count(); };
        list.push_back({QString::fromLatin1(name), ms(now - m_previous), ms(now - m_start)});
        m_previous = now;
    }
    std::vector<RecordingPreparationTiming> list;

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_previous = m_start;
};

MediaWriterEngine* RecordingPreparation::Result::screenWriter() const {
    if (mediaWriter)
        return mediaWriter.get();
    return layerRecordingManager ? layerRecordingManager->getScreenWriter() : nullptr;
}

RecordingPreparation::RecordingPreparation(RecordingEngineFactory& factory,
                                           const UserDefaults& defaults)
    : m_factory(factory), m_defaults(defaults) {}

QCoro::Task<RecordingPreparation::Result>
RecordingPreparation::prepareEngines(RecordingMode mode, RecordingConfiguration configuration,
                                     std::optional<SCShareableContent> cachedContent,
                                     CameraCaptureEngine* prewarmedCamera,
                                     std::optional<QString> prewarmedCameraDeviceName) const {
    // The work gets its own copies: nothing it touches is shared with the main thread.
    // Made before the co_await: g++ 12 destroys temporaries of an awaited expression twice.
    QCoro::Task<Result> work = runDetached<Result>(
        [this, mode, configuration, cachedContent, prewarmedCamera, prewarmedCameraDeviceName] {
            Timings timings;
            Result result = mode.isAudioOnly()
                                ? prepareAudioOnly(configuration, timings)
                                : prepareVideo(mode, configuration, cachedContent, prewarmedCamera,
                                               prewarmedCameraDeviceName, timings);
            result.preparationTimings = std::move(timings.list);
            return result;
        });
    co_return co_await work;
}

RecordingPreparation::Result
RecordingPreparation::prepareAudioOnly(const RecordingConfiguration& configuration,
                                       Timings& timings) const {
    Result result;
    result.audioOnlyRecorder = m_factory.makeAudioOnlyRecorder(configuration);
    result.audioOnlyRecorder->prepareRecording();
    timings.record("audioOnly.recorder.prepare");

    result.audioEngine = m_factory.makeAudioCaptureEngine();
    result.audioEngine->setVolumes(configuration.systemAudioVolume, configuration.microphoneVolume);
    if (configuration.recordSystemAudio) {
        result.audioEngine->setupSystemAudioCapture();
        timings.record("audioOnly.systemAudio.setup");
    }
    if (configuration.recordMicrophone) {
        result.audioEngine->setupMicrophoneCapture(
            getMicrophoneDevice(configuration.microphoneDevice), configuration.enableAEC);
        timings.record("audioOnly.microphone.setup");
    }
    return result;
}

RecordingPreparation::Result RecordingPreparation::prepareVideo(
    const RecordingMode& mode, const RecordingConfiguration& configuration,
    const std::optional<SCShareableContent>& cachedContent, CameraCaptureEngine* prewarmedCamera,
    const std::optional<QString>& prewarmedCameraDeviceName, Timings& timings) const {
    Result result;
    result.screenEngine = m_factory.makeScreenCaptureEngine();
    timings.record("screenEngine.create");

    if (cachedContent) {
        result.screenEngine->setAvailableContent(*cachedContent);
        timings.record("shareableContent.useCached");
    } else {
        logLine("⚠️ RecordingPreparation loaded shareable content fallback; expected "
                "prepareRecording to pass cached content");
        // The engine checks the permission itself before it asks for the content.
        result.screenEngine->updateAvailableContent();
    }

    auto filter = result.screenEngine->createFilter(mode, configuration);
    timings.record("screenFilter.create");

    logLine("🎚️ Audio configuration:");
    logLine("   System audio: {}", yesNo(configuration.recordSystemAudio));
    logLine("   Microphone: {}", yesNo(configuration.recordMicrophone));
    logLine("   Capturing system audio from SCStream: {}", yesNo(configuration.recordSystemAudio));
    result.screenEngine->configureStream(
        std::move(filter), mode, configuration.resolution, configuration.frameRate,
        configuration.showCursor, configuration.backgroundColor, configuration.recordSystemAudio);
    result.screenEngine->setSystemAudioVolume(configuration.systemAudioVolume);
    timings.record("screenStream.configure");

    if (configuration.recordMicrophone) {
        // System audio comes with the stream in video modes; this engine is the microphone only.
        result.audioEngine = m_factory.makeAudioCaptureEngine();
        result.audioEngine->setVolumes(configuration.systemAudioVolume,
                                       configuration.microphoneVolume);
        result.audioEngine->setupMicrophoneCapture(
            getMicrophoneDevice(configuration.microphoneDevice), configuration.enableAEC);
        timings.record("microphone.setup");
    }

    const auto& studio = configuration.studioConfig;
    if (studio && studio->enableSeparateLayers) {
        prepareLayers(result, mode, configuration, prewarmedCamera, prewarmedCameraDeviceName,
                      timings);
    } else {
        result.mediaWriter = m_factory.makeMediaWriter();
        timings.record("mediaWriter.create");
        const QString outputURL = generateOutputURL(&configuration, QDateTime::currentDateTime());
        const auto stream = result.screenEngine->configuration();
        const WriterConfiguration writerConfig =
            buildWriterConfiguration(configuration, mode, stream, outputURL);
        timings.record("mediaWriterConfig.build");
        validateEncoderSupport(configuration.encoder, stream->width, stream->height);
        result.mediaWriter->configure(writerConfig);
        timings.record("mediaWriter.configure");
        result.mediaWriter->startWriting();
        timings.record("mediaWriter.startWriting");
    }

    // Only window captures go through the fixed-rate pump: their frames arrive irregularly,
    // and a live zoom needs a steady rate to animate.
    const bool windowMode = mode.is<RecordingMode::Window>() || mode.is<RecordingMode::Windows>();
    if (windowMode && studio && studio->enableClickToZoom) {
        result.shouldUseWindowPump = true;
        result.pumpFrameRate = std::min(configuration.frameRate, 60);
    }
    return result;
}

void RecordingPreparation::prepareLayers(Result& result, const RecordingMode& mode,
                                         const RecordingConfiguration& configuration,
                                         CameraCaptureEngine* prewarmedCamera,
                                         const std::optional<QString>& prewarmedCameraDeviceName,
                                         Timings& timings) const {
    logLine("📦 Initializing separate layer recording...");
    result.layerRecordingManager = m_factory.makeLayerRecordingManager();
    auto& layers = *result.layerRecordingManager;
    layers.createRecordingPackage(configuration.outputDirectory);
    timings.record("layerPackage.create");

    const auto stream = result.screenEngine->configuration();
    const WriterConfiguration screenConfig = buildWriterConfiguration(
        configuration, mode, stream, layers.fileURL(RecordingLayer::screen).value_or(QString()));
    timings.record("screenWriterConfig.build");
    validateEncoderSupport(configuration.encoder, stream->width, stream->height);

    CameraCaptureEngine* camera = nullptr;
    std::optional<WriterConfiguration> cameraConfig;
    if (configuration.recordCamera) {
        if (const auto device = resolveCameraDevice(configuration.cameraDevice)) {
            const QString wanted = configuration.cameraDevice.value_or(QStringLiteral("default"));
            if (prewarmedCamera && prewarmedCameraDeviceName == wanted) {
                camera = prewarmedCamera;
                result.usesPrewarmedCamera = true;
                timings.record("camera.usePrewarmed");
            } else {
                result.cameraEngine = m_factory.makeCameraCaptureEngine();
                result.cameraEngine->setupCamera(*device);
                camera = result.cameraEngine.get();
                timings.record("camera.setup");
            }
            const VideoDimensions size =
                camera->activeVideoDimensions().value_or(VideoDimensions{});
            WriterConfiguration config;
            config.outputURL =
                layers.fileURL(RecordingLayer::camera).value_or(QString()).toStdString();
            config.outputFormat = configuration.outputFormat;
            WriterConfiguration::VideoSettings video;
            video.width = size.width;
            video.height = size.height;
            video.frameRate = configuration.frameRate;
            video.codec = configuration.encoder;
            video.quality = configuration.videoQuality;
            video.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709();
            config.videoSettings = video;
            config.audioSettings = defaultAudioSettings();
            cameraConfig = config;
            timings.record("cameraWriterConfig.build");
        } else {
            logLine("ℹ️ No camera available; camera layer will be skipped");
        }
    }

    layers.startLayerRecording(screenConfig, cameraConfig, defaultAudioSettings());
    timings.record("layerRecording.startWriters");
    if (camera) {
        if (MediaWriterEngine* cameraWriter = layers.getCameraWriter()) {
            camera->configureSeparateWriter(cameraWriter);
            timings.record("cameraWriter.configure");
        } else {
            logLine("⚠️ Camera writer not available after startLayerRecording");
        }
    }
    logLine("✅ Separate layer recording initialized");
}

WriterConfiguration RecordingPreparation::buildWriterConfiguration(
    const RecordingConfiguration& configuration, const RecordingMode& mode,
    std::optional<SCStreamConfiguration> streamConfig, const QString& outputURL) const {
    WriterConfiguration result;
    result.outputURL = outputURL.toStdString();
    result.outputFormat = configuration.outputFormat;
    if (mode.hasVideo()) {
        if (!streamConfig)
            throw RecordingError::invalidConfiguration(
                QStringLiteral("Screen capture not configured"));
        WriterConfiguration::VideoSettings video;
        video.width = streamConfig->width;
        video.height = streamConfig->height;
        if (configuration.studioConfig && configuration.studioConfig->enableAlphaChannel) {
            if (m_factory.isAlphaChannelSupported()) {
                video.hasAlphaChannel = true;
                const auto stored =
                    m_defaults.stringValue(Constants::UserDefaultsKey::alphaChannelCodec);
                const QString codec = stored.value_or(QStringLiteral("hevcWithAlpha"));
                video.alphaCodec = alphaVideoCodecFromRawValue(codec.toStdString());
                logLine("🎨 Alpha channel recording enabled with codec: {}",
                        video.alphaCodec ? rawValue(*video.alphaCodec) : std::string("none"));
            } else {
                logLine("⚠️ Alpha channel not supported, falling back to standard recording");
            }
        }
        // Encoders are asked for what they can keep up with: slow captures still get a
        // frame rate players accept, fast ones are declared at 60.
        video.frameRate = std::min(std::max(configuration.frameRate, 15), 60);
        video.codec = configuration.encoder;
        video.quality = configuration.videoQuality;
        video.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709();
        result.videoSettings = video;
    }
    result.audioSettings = configuredAudioSettings(configuration);
    result.separateAudioTracks = configuration.separateAudioTracks;
    return result;
}

void RecordingPreparation::validateEncoderSupport(VideoEncoder encoder, int width,
                                                  int height) const {
    if (encoder != VideoEncoder::h264)
        return;
    if (!m_factory.encoderProbe().canOpenH264Encoder(width, height))
        throw RecordingError::invalidConfiguration(
            QStringLiteral("H.264 hardware encoder doesn't support this resolution (%1x%2). Try "
                           "using H.265 encoder or lower resolution/frame rate.")
                .arg(width)
                .arg(height));
}

QString RecordingPreparation::generateOutputURL(const RecordingConfiguration* configuration,
                                                const QDateTime& now) {
    if (!configuration)
        return QStringLiteral("recording.") + rawValue(OutputFormat::mov);
    const QString prefix = configuration->mode.isAudioOnly()
                               ? QStringLiteral("Audio Recording at ")
                               : QString::fromUtf8(Constants::recordingPrefix.data(),
                                                   qsizetype(Constants::recordingPrefix.size()));
    const QString name = prefix + formattedForFilename(now) + QLatin1Char('.') +
                         rawValue(configuration->outputFormat);
    return QDir(configuration->outputDirectory).filePath(name);
}

namespace {
std::optional<AVCaptureDevice> findDevice(const std::optional<QString>& name,
                                          const std::vector<AVCaptureDevice>& devices,
                                          std::optional<AVCaptureDevice> fallback) {
    if (!name || *name == QLatin1String("default"))
        return fallback;
    for (const AVCaptureDevice& device : devices) {
        if (device.localizedName == *name)
            return device;
    }
    return fallback;
}
} // namespace

std::optional<AVCaptureDevice>
RecordingPreparation::getMicrophoneDevice(const std::optional<QString>& name) const {
    if (!name || *name == QLatin1String("default"))
        return m_factory.defaultMicrophone();
    return findDevice(name, m_factory.microphones(), m_factory.defaultMicrophone());
}

std::optional<AVCaptureDevice>
RecordingPreparation::resolveCameraDevice(const std::optional<QString>& name) const {
    if (!name || *name == QLatin1String("default"))
        return m_factory.defaultCamera();
    return findDevice(name, m_factory.cameras(), m_factory.defaultCamera());
}
