#pragma once

#include "core/recording/engines/ScreenCaptureEngine.h"

// Stands for screen capture where no capture backend can run (no X server, or a backend that
// is not built): the first step of every preparation fails with the reason. Thread: any.
class NullScreenCaptureEngine final : public ScreenCaptureEngine {
public:
    explicit NullScreenCaptureEngine(QString reason) : m_reason(std::move(reason)) {}

    void setAvailableContent(const SCShareableContent&) override {}
    void updateAvailableContent() override;
    std::shared_ptr<SCContentFilter> createFilter(const RecordingMode& mode,
                                                  const RecordingConfiguration& config) override;
    void configureStream(std::shared_ptr<SCContentFilter>, const RecordingMode&, ResolutionMode,
                         int, bool, BackgroundType, bool) override;
    void setFrameHandler(FrameHandler) override {}
    void setAudioHandler(AudioHandler) override {}
    void setErrorHandler(ErrorHandler) override {}
    std::optional<SCStreamConfiguration> configuration() const override { return std::nullopt; }
    std::optional<Rect> captureRectInScreenSpace() const override { return std::nullopt; }
    QCoro::Task<void> startCapture() override;
    QCoro::Task<void> stopCapture() override;

private:
    QString m_reason;
};
