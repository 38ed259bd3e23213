#include "platform/null/NullCameraCaptureEngine.h"

#include "core/model/RecordingError.h"

void NullCameraCaptureEngine::setupCamera(const AVCaptureDevice&) {
    throw RecordingError::invalidConfiguration(m_reason);
}

void NullCameraCaptureEngine::startCapture() {
    throw RecordingError::invalidConfiguration(m_reason);
}
