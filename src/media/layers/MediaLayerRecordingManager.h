#pragma once

#include "core/recording/engines/LayerRecordingManager.h"

#include <functional>
#include <memory>

// The separate-layers package on disk: a folder "Recording-<local date>" holding ".screen.mov",
// ".camera.mov" (when the camera delivered), ".audio.m4a" (reserved), ".metadata.json" and, last,
// the manifest ".package.json". Owns the screen and camera writers; one manager serves one
// recording.
// Thread: created and started on the preparation's worker; finalized and cancelled on the main
// thread after the capture threads have stopped feeding the writers. No lock.
class MediaLayerRecordingManager final : public LayerRecordingManager {
public:
    using WriterFactory = std::function<std::unique_ptr<MediaWriterEngine>()>;

    explicit MediaLayerRecordingManager(WriterFactory makeWriter);
    ~MediaLayerRecordingManager() override;

    RecordingPackage createRecordingPackage(const QString& baseFolder) override;
    std::optional<QString> fileURL(RecordingLayer layer) const override;
    void startLayerRecording(const WriterConfiguration& screenConfig,
                             const std::optional<WriterConfiguration>& cameraConfig,
                             const WriterConfiguration::AudioSettings& audioConfig) override;
    MediaWriterEngine* getScreenWriter() override { return m_screenWriter.get(); }
    MediaWriterEngine* getCameraWriter() override { return m_cameraWriter.get(); }
    QCoro::Task<RecordingPackage> finalizeLayers(PackageConfiguration configuration) override;
    std::optional<RecordingPackage> recordingPackage() const override { return m_package; }
    void cancel() override;
    QCoro::Task<std::optional<QString>> salvage() override;

    bool isRecording() const { return m_isRecording; }

    // Reads a finished package back. Only the package's own folder is read: a manifest naming a
    // file elsewhere, or a listed layer file that is not there, gives missingFile for that
    // layer; no manifest gives packageNotFound; a damaged one gives ManifestError. The returned
    // paths are those inside `packageFolder`, so a moved package opens where it now is.
    static RecordingPackage loadPackage(const QString& packageFolder);

private:
    std::unique_ptr<MediaWriterEngine> startWriter(const WriterConfiguration& config,
                                                   RecordingLayer layer);
    void logSummary(const RecordingPackage& package) const;

    WriterFactory m_makeWriter;
    std::optional<RecordingPackage> m_package;
    std::unique_ptr<MediaWriterEngine> m_screenWriter;
    std::unique_ptr<MediaWriterEngine> m_cameraWriter;
    bool m_isRecording = false;
    bool m_salvaged = false; // the files are the user's now: a cancel leaves them
};
