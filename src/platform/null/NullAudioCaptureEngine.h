#pragma once

#include "core/recording/engines/AudioCaptureEngine.h"

#include <QString>

// Stands for the audio engine on a desktop where no audio backend could be loaded: every
// recording that asks for sound fails before it starts, saying why, instead of recording
// silence. Thread: any.
class NullAudioCaptureEngine final : public AudioCaptureEngine {
public:
    explicit NullAudioCaptureEngine(QString reason) : m_reason(std::move(reason)) {}

    void setupSystemAudioCapture() override;
    bool setupMicrophoneCapture(const std::optional<AVCaptureDevice>& device,
                                bool enableAEC) override;
    void setSystemAudioHandler(BufferHandler) override {}
    void setMicrophoneAudioHandler(BufferHandler) override {}
    void startCapture() override;
    void stopCapture() override {}

private:
    QString m_reason;
};
