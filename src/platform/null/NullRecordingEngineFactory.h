#pragma once

#include "platform/DesktopRecordingEngineFactory.h"

#include <QString>

// The engines where no screen capture backend can run: everything a desktop shares, and a
// screen engine and content that fail with the reason. Thread-safe.
class NullRecordingEngineFactory final : public DesktopRecordingEngineFactory {
public:
    explicit NullRecordingEngineFactory(QString reason) : m_reason(std::move(reason)) {}

    std::unique_ptr<ScreenCaptureEngine> makeScreenCaptureEngine() override;
    SCShareableContent fetchShareableContent() override;

private:
    QString m_reason;
};
