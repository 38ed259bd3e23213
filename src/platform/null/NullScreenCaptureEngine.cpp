#include "platform/null/NullScreenCaptureEngine.h"

#include "core/model/RecordingError.h"

void NullScreenCaptureEngine::updateAvailableContent() {
    throw RecordingError::invalidConfiguration(m_reason);
}

std::shared_ptr<SCContentFilter>
NullScreenCaptureEngine::createFilter(const RecordingMode&, const RecordingConfiguration&) {
    throw RecordingError::invalidConfiguration(m_reason);
}

void NullScreenCaptureEngine::configureStream(std::shared_ptr<SCContentFilter>,
                                              const RecordingMode&, ResolutionMode, int, bool,
                                              BackgroundType, bool) {
    throw RecordingError::invalidConfiguration(m_reason);
}

QCoro::Task<void> NullScreenCaptureEngine::startCapture() {
    throw RecordingError::invalidConfiguration(m_reason);
    co_return;
}

QCoro::Task<void> NullScreenCaptureEngine::stopCapture() {
    co_return;
}
