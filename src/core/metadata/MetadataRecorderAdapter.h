#pragma once

#include "core/metadata/MetadataRecorder.h"
#include "core/recording/engines/MetadataRecorderEngine.h"

// The coordinator's metadata interface on the real MetadataRecorder.
class MetadataRecorderAdapter final : public MetadataRecorderEngine {
public:
    MetadataRecorderAdapter(Size resolution, int frameRate) : m_recorder(resolution, frameRate) {}

    void startRecording(const QDateTime& at) override {
        m_recorder.startRecording(
            MetadataRecorder::Clock::time_point(std::chrono::milliseconds(at.toMSecsSinceEpoch())));
    }
    void setTimeProvider(TimeProvider provider) override {
        m_recorder.timeProvider = std::move(provider);
    }
    void recordCursorPosition(Point atTopLeft) override {
        m_recorder.recordCursorPosition(atTopLeft);
    }
    void recordCursorClick(Point at, ClickType clickType) override {
        m_recorder.recordCursorClick(at, clickType);
    }
    void recordZoomEvent(Point at, double level, double duration) override {
        m_recorder.recordZoomEvent(at, level, duration);
    }
    MetadataCounts currentCounts() const override {
        const RecordingMetadata metadata = m_recorder.getCurrentMetadata();
        // Positions spill to disk while recording; both parts count.
        const auto positions =
            std::max(metadata.cursorPositions.size(),
                     m_recorder.cursorPositionsOnDisk() + m_recorder.bufferedCursorPositions());
        return MetadataCounts{int(positions), int(metadata.cursorClicks.size()),
                              int(metadata.zoomEvents.size())};
    }
    void stopRecording(double duration) override { m_recorder.stopRecording(duration); }
    void saveMetadata(const QString& url) override { m_recorder.saveMetadata(url); }

    MetadataRecorder& recorder() { return m_recorder; }

private:
    MetadataRecorder m_recorder;
};
