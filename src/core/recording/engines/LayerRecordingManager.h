#pragma once

#include "core/model/RecordingPackage.h"
#include "core/model/WriterConfiguration.h"

#include <QCoro/QCoroTask>

#include <optional>

class MediaWriterEngine;

// Records screen and camera into files of their own inside a package folder. Owns both writers.
// Thread: set up on a worker thread; finalized and cancelled on the main thread.
class LayerRecordingManager {
public:
    virtual ~LayerRecordingManager() = default;

    // Creates the package folder under `baseFolder`. Throws.
    virtual RecordingPackage createRecordingPackage(const QString& baseFolder) = 0;
    virtual std::optional<QString> fileURL(RecordingLayer layer) const = 0;
    // Opens the writers. Throws.
    virtual void startLayerRecording(const WriterConfiguration& screenConfig,
                                     const std::optional<WriterConfiguration>& cameraConfig,
                                     const WriterConfiguration::AudioSettings& audioConfig) = 0;
    // Owned by the manager; null before startLayerRecording.
    virtual MediaWriterEngine* getScreenWriter() = 0;
    virtual MediaWriterEngine* getCameraWriter() = 0;

    // Finishes the writers and writes the manifest. Throws.
    virtual QCoro::Task<RecordingPackage> finalizeLayers(PackageConfiguration configuration) = 0;
    virtual std::optional<RecordingPackage> recordingPackage() const = 0;
    // Cancels, and removes the package folder, unless the package was salvaged.
    virtual void cancel() = 0;
    // For a recording that must end on an error: stops the writers and keeps what reached the
    // disk as a package "<name> (Recovered)" that opens like a finished one, with the metadata
    // saved in the package folder cut to the same length. Returns the new folder; absent when
    // the screen layer kept nothing or the manager cannot salvage. Never throws.
    virtual QCoro::Task<std::optional<QString>> salvage() { co_return std::nullopt; }
};
