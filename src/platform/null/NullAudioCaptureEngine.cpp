#include "platform/null/NullAudioCaptureEngine.h"

#include "core/model/RecordingError.h"

void NullAudioCaptureEngine::setupSystemAudioCapture() {
    throw RecordingError::invalidConfiguration(m_reason);
}

bool NullAudioCaptureEngine::setupMicrophoneCapture(const std::optional<AVCaptureDevice>&, bool) {
    throw RecordingError::invalidConfiguration(m_reason);
}

void NullAudioCaptureEngine::startCapture() {
    throw RecordingError::invalidConfiguration(m_reason);
}
