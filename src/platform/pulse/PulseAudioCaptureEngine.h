#pragma once

#include "core/recording/engines/AudioCaptureEngine.h"
#include "platform/pulse/EchoCanceller.h"
#include "platform/pulse/PulseConnection.h"
#include "platform/pulse/PulseRecordStream.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

class AudioBuffer;

// Microphone and system audio from the sound server. The microphone is the chosen source or
// the default one; system audio is the monitor of the default sink. Both leave as 48 kHz stereo
// float planar, stamped with the host clock, at their volumes.
// Thread: set up, started and stopped on one controlling thread; the handlers run on the sound
// server's loop thread, the two streams one after the other, and must not block.
class PulseAudioCaptureEngine final : public AudioCaptureEngine {
public:
    PulseAudioCaptureEngine();
    ~PulseAudioCaptureEngine() override;

    // Throws RecordingError when no sound server answers or the default sink has no monitor.
    void setupSystemAudioCapture() override;
    bool setupMicrophoneCapture(const std::optional<AVCaptureDevice>& device,
                                bool enableAEC) override;

    void setSystemAudioHandler(BufferHandler handler) override;
    void setMicrophoneAudioHandler(BufferHandler handler) override;
    void setVolumes(float systemAudioVolume, float microphoneVolume) override;

    void startCapture() override;
    void stopCapture() override;

    // Passes a system audio block to its handler at the system audio volume, while system audio
    // is captured.
    void processSystemAudio(const AudioBuffer& buffer);

    // A copy with every sample times `volume`, unclipped, at the same time; nothing when the
    // block holds no samples.
    static std::optional<AudioBuffer> adjustVolume(const AudioBuffer& buffer, float volume);

    std::optional<AVCaptureDevice> currentMicDevice() const { return m_currentMicDevice; }
    bool isAECEnabled() const { return m_isAECEnabled; }
    bool isCapturingSystemAudio() const { return m_isCapturingSystemAudio.load(); }
    bool isCapturingMicrophone() const { return m_isCapturingMicrophone.load(); }

private:
    PulseConnection& connection(); // throws RecordingError
    bool setupStandardMicrophoneCapture(const PulseConnection::Source& source);
    // `cancelEcho`: the microphone is the default one and echo cancellation was asked for.
    bool setupAECCapture(const PulseConnection::Source& source, bool cancelEcho);
    void setupEchoCancellation();
    void processMicrophone(const AudioBuffer& captured);
    static void deliver(const BufferHandler& handler, AudioBuffer buffer);

    std::unique_ptr<PulseConnection> m_connection;
    std::unique_ptr<PulseRecordStream> m_systemStream;
    std::unique_ptr<PulseRecordStream> m_microphoneStream;
    // With echo cancellation: the default sink's monitor, the echo to take out of the microphone.
    std::unique_ptr<PulseRecordStream> m_referenceStream;
    std::unique_ptr<EchoCanceller> m_echoCanceller; // loop thread only, once capture starts
    // Handlers are set before capture starts and read on the loop thread.
    std::mutex m_handlerMutex;
    BufferHandler m_systemAudioHandler;
    BufferHandler m_microphoneAudioHandler;
    std::optional<AVCaptureDevice> m_currentMicDevice;
    bool m_isAECEnabled = false;
    std::atomic<bool> m_isCapturingSystemAudio{false};
    std::atomic<bool> m_isCapturingMicrophone{false};
    std::atomic<float> m_systemAudioVolume{1.0f};
    std::atomic<float> m_microphoneVolume{1.0f};
};
