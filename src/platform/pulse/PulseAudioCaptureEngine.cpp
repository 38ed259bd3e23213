#include "platform/pulse/PulseAudioCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "core/support/Log.h"
#include "media/AudioBuffer.h"
#include "platform/pulse/AudioDeviceManager.h"

#include <stdexcept>

PulseAudioCaptureEngine::PulseAudioCaptureEngine() = default;

PulseAudioCaptureEngine::~PulseAudioCaptureEngine() {
    stopCapture();
}

PulseConnection& PulseAudioCaptureEngine::connection() {
    if (!m_connection) {
        try {
            m_connection = std::make_unique<PulseConnection>("tavelquiston");
        } catch (const std::runtime_error& error) {
            throw RecordingError::invalidConfiguration(
                QStringLiteral("Audio capture is not available: %1").arg(error.what()));
        }
    }
    return *m_connection;
}

void PulseAudioCaptureEngine::setupSystemAudioCapture() {
    PulseConnection& server = connection();
    const std::string sink = server.defaults().sinkName;
    // Every sink has a monitor source of this name, on PulseAudio and on pipewire-pulse.
    const std::optional<PulseConnection::Source> monitor = server.source(sink + ".monitor");
    if (sink.empty() || !monitor)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("System audio is not available: the default sink \"%1\" has no monitor")
                .arg(QString::fromStdString(sink)));
    m_systemStream = std::make_unique<PulseRecordStream>(
        server, *monitor, "System audio",
        [this](const AudioBuffer& buffer) { processSystemAudio(buffer); });
    m_isCapturingSystemAudio = true;
}

bool PulseAudioCaptureEngine::setupMicrophoneCapture(const std::optional<AVCaptureDevice>& device,
                                                     bool enableAEC) {
    const std::optional<AVCaptureDevice> defaultDevice = AudioDeviceManager::getDefaultMicrophone();
    m_currentMicDevice = device ? device : defaultDevice;
    m_isAECEnabled = enableAEC;
    if (!m_currentMicDevice) {
        logLine("AudioCaptureEngine: No microphone device available");
        return false;
    }
    std::optional<PulseConnection::Source> source;
    try {
        source = connection().source(m_currentMicDevice->uniqueID.toStdString());
    } catch (const RecordingError& error) {
        logLine("❌ {}", error.localizedDescription().toStdString());
        return false;
    }
    if (!source) {
        logLine("❌ Microphone \"{}\" is not a source of the sound server",
                m_currentMicDevice->uniqueID.toStdString());
        return false;
    }
    const bool isDefault = defaultDevice && defaultDevice->uniqueID == m_currentMicDevice->uniqueID;
    const bool ready = enableAEC && isDefault ? setupAECCapture(*source, true)
                                              : setupStandardMicrophoneCapture(*source);
    if (ready)
        m_isCapturingMicrophone = true;
    return ready;
}

bool PulseAudioCaptureEngine::setupStandardMicrophoneCapture(
    const PulseConnection::Source& source) {
    logLine("ℹ️ Using AVAudioEngine for microphone (provides format conversion)");
    return setupAECCapture(source, false);
}

void PulseAudioCaptureEngine::setupEchoCancellation() {
    m_echoCanceller = EchoCanceller::create();
    if (!m_echoCanceller) {
        logLine(
            "⚠️ Echo cancellation is not available in this build; the microphone is recorded "
            "as it is");
        return;
    }
    PulseConnection& server = connection();
    const std::optional<PulseConnection::Source> monitor =
        server.source(server.defaults().sinkName + ".monitor");
    if (!monitor) {
        logLine("⚠️ Echo cancellation needs the default sink's monitor; the microphone is "
                "recorded as it is");
        m_echoCanceller.reset();
        return;
    }
    // Both streams call back on the one loop thread, so the canceller needs no lock.
    m_referenceStream = std::make_unique<PulseRecordStream>(
        server, *monitor, "Echo reference",
        [this](const AudioBuffer& buffer) { m_echoCanceller->addReference(buffer); });
    logLine("🔇 Echo cancellation: the microphone is cleaned of \"{}\"", monitor->name);
}

bool PulseAudioCaptureEngine::setupAECCapture(const PulseConnection::Source& source,
                                              bool cancelEcho) {
    logLine("🎤 Microphone input format: {}Hz / {}ch", source.sampleRate, source.channelCount);
    logLine("🎯 Target audio format: {}Hz / {}ch float32 non-interleaved",
            PulseRecordStream::outputSampleRate, PulseRecordStream::outputChannelCount);
    if (source.sampleRate <= 0 || source.channelCount <= 0) {
        logLine("❌ Failed to create audio converter");
        return false;
    }
    if (cancelEcho)
        setupEchoCancellation();
    m_microphoneStream = std::make_unique<PulseRecordStream>(
        connection(), source, "Microphone",
        [this](const AudioBuffer& buffer) { processMicrophone(buffer); });
    if (m_microphoneStream->needsConversion())
        logLine("✅ Audio converter created: {}Hz/{}ch → {}Hz/{}ch", source.sampleRate,
                source.channelCount, PulseRecordStream::outputSampleRate,
                PulseRecordStream::outputChannelCount);
    else
        logLine("ℹ️ No conversion needed - formats match");
    return true;
}

void PulseAudioCaptureEngine::setSystemAudioHandler(BufferHandler handler) {
    std::lock_guard lock(m_handlerMutex);
    m_systemAudioHandler = std::move(handler);
}

void PulseAudioCaptureEngine::setMicrophoneAudioHandler(BufferHandler handler) {
    std::lock_guard lock(m_handlerMutex);
    m_microphoneAudioHandler = std::move(handler);
}

void PulseAudioCaptureEngine::setVolumes(float systemAudioVolume, float microphoneVolume) {
    m_systemAudioVolume = systemAudioVolume;
    m_microphoneVolume = microphoneVolume;
}

void PulseAudioCaptureEngine::startCapture() {
    try {
        if (m_systemStream)
            m_systemStream->start();
        if (m_microphoneStream && m_isCapturingMicrophone) {
            if (m_referenceStream)
                m_referenceStream->start();
            m_microphoneStream->start();
        }
    } catch (const std::runtime_error& error) {
        stopCapture();
        throw RecordingError::invalidConfiguration(QString::fromUtf8(error.what()));
    }
}

void PulseAudioCaptureEngine::stopCapture() {
    if (m_microphoneStream)
        m_microphoneStream->stop();
    if (m_referenceStream)
        m_referenceStream->stop();
    if (m_systemStream)
        m_systemStream->stop();
    m_isCapturingSystemAudio = false;
    m_isCapturingMicrophone = false;
}

void PulseAudioCaptureEngine::processSystemAudio(const AudioBuffer& buffer) {
    if (!m_isCapturingSystemAudio)
        return;
    const float volume = m_systemAudioVolume.load();
    std::optional<AudioBuffer> adjusted;
    if (volume != 1.0f)
        adjusted = adjustVolume(buffer, volume);
    std::lock_guard lock(m_handlerMutex);
    deliver(m_systemAudioHandler, adjusted ? std::move(*adjusted) : buffer);
}

void PulseAudioCaptureEngine::processMicrophone(const AudioBuffer& captured) {
    const AudioBuffer buffer = m_echoCanceller ? m_echoCanceller->process(captured) : captured;
    if (buffer.isNull())
        return; // less than one step of the canceller so far
    const float volume = m_microphoneVolume.load();
    std::optional<AudioBuffer> adjusted;
    if (volume != 1.0f)
        adjusted = adjustVolume(buffer, volume);
    std::lock_guard lock(m_handlerMutex);
    deliver(m_microphoneAudioHandler, adjusted ? std::move(*adjusted) : buffer);
}

void PulseAudioCaptureEngine::deliver(const BufferHandler& handler, AudioBuffer buffer) {
    if (!handler)
        return;
    const AudioSampleTiming timing{buffer.presentationTime, buffer.sampleRate(),
                                   buffer.channelCount()};
    handler(std::make_shared<const AudioBuffer>(std::move(buffer)), timing);
}

std::optional<AudioBuffer> PulseAudioCaptureEngine::adjustVolume(const AudioBuffer& buffer,
                                                                 float volume) {
    if (buffer.isNull() || buffer.sampleCount() <= 0)
        return std::nullopt;
    AudioBuffer copy = AudioBuffer::allocate(buffer.channelCount(), buffer.sampleRate(),
                                             buffer.sampleCount(), buffer.presentationTime);
    if (copy.isNull())
        return std::nullopt;
    for (int channel = 0; channel < buffer.channelCount(); ++channel) {
        const float* in = buffer.channelData(channel);
        float* out = copy.mutableChannelData(channel);
        for (int sample = 0; sample < buffer.sampleCount(); ++sample)
            out[sample] = in[sample] * volume; // no clipping: the encoder takes float
    }
    return copy;
}
