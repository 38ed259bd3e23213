#pragma once

#include "core/recording/engines/CameraCaptureEngine.h"

#include <QString>

// Stands for the camera engine where no camera backend could be loaded: setting up a camera
// fails with the reason, and nothing else ever runs. Thread: any.
class NullCameraCaptureEngine final : public CameraCaptureEngine {
public:
    explicit NullCameraCaptureEngine(QString reason) : m_reason(std::move(reason)) {}

    void setupCamera(const AVCaptureDevice& device) override;
    std::optional<VideoDimensions> activeVideoDimensions() const override { return std::nullopt; }
    void configureSeparateWriter(MediaWriterEngine*) override {}
    void startCapture() override;
    void stopCapture() override {}
    bool isCapturing() const override { return false; }
    void cleanup() override {}
    void setRecordingPaused(bool) override {}
    void addTimeOffset(MediaTime) override {}
    bool isSeparateLayerRecording() const override { return false; }
    std::optional<MediaTime> syncedSessionStartTime() const override { return std::nullopt; }
    void startWriterSessionIfNeeded(MediaTime) override {}

private:
    QString m_reason;
};
