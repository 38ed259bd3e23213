#include "platform/null/NullRecordingEngineFactory.h"

#include "core/model/RecordingError.h"
#include "platform/null/NullScreenCaptureEngine.h"

std::unique_ptr<ScreenCaptureEngine> NullRecordingEngineFactory::makeScreenCaptureEngine() {
    return std::make_unique<NullScreenCaptureEngine>(m_reason);
}

SCShareableContent NullRecordingEngineFactory::fetchShareableContent() {
    throw RecordingError::invalidConfiguration(m_reason);
}
