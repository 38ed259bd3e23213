#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/model/RecordingPackage.h"

#include <QString>

#include <QCoro/QCoroTask>

#include <functional>
#include <optional>

class AudioOnlyRecorder;
class LayerRecordingManager;
class MediaWriterEngine;
class MetadataRecorderEngine;
class RecordingResultOpener;
class ScreenCaptureEngine;
class UserDefaults;

// Turns what the engines captured into the result on disk, and hands the result to the
// person, at the end of a recording. Thread: main.
class RecordingOutputFinisher {
public:
    // The coordinator's engines at the moment of stopping; none is owned here.
    struct Outputs {
        AudioOnlyRecorder* audioOnlyRecorder = nullptr;
        LayerRecordingManager* layerRecordingManager = nullptr;
        MediaWriterEngine* mediaWriter = nullptr;
        ScreenCaptureEngine* screenEngine = nullptr;
    };

    // Finishes the audio package, the layer package (falling back to the screen file alone
    // when the package fails) or the single file, and returns its path; without any writer
    // the path of a file nothing was written to. `isAlive` is asked after every wait: when it
    // says no, the engines are gone and an empty path is returned.
    static QCoro::Task<QString> finishOutputs(Outputs outputs,
                                              std::optional<RecordingConfiguration> configuration,
                                              double duration, QString unwrittenURL,
                                              std::function<bool()> isAlive);

    // Where a recording's metadata goes: into its package, else hidden beside the file as
    // ".<name>.metadata.json".
    static QString metadataURL(const QString& resultURL,
                               const std::optional<RecordingPackage>& package);
    // Stops the recorder and saves; a failed save is logged and the recording still completes.
    static void saveMetadata(MetadataRecorderEngine& recorder, double duration, const QString& url);

    // Videos open in the editor, always; audio opens in the default application.
    static void openResult(RecordingResultOpener& opener, const QString& url,
                           const std::optional<RecordingPackage>& package, bool wasAudioOnly,
                           bool hasStudioFeatures, bool shouldOpenTrimmer);

    // What a finished recording is, for opening it once the coordinator has gone back to idle.
    struct Result {
        QString url;
        bool wasAudioOnly = false;
        bool hasStudioFeatures = false;
        bool shouldOpenTrimmer = false;
    };
    // Logs the editor decisions of a recording that just finished.
    static Result describeResult(const QString& url,
                                 const std::optional<RecordingConfiguration>& configuration,
                                 bool hasLayers, bool hasMetadata, const UserDefaults& defaults);

    // Keeps what the writers already wrote of a recording that ends on an error: its metadata
    // cut to `timelineSeconds` and its file (or each layer of its package) closed into
    // "<name> (Recovered)". Writers that never received a frame keep nothing. `isAlive` as above.
    static QCoro::Task<std::optional<QString>> salvage(Outputs outputs,
                                                       MetadataRecorderEngine* metadata,
                                                       double timelineSeconds,
                                                       std::function<bool()> isAlive);
    // The sentence an alert adds about the salvaged file; empty without one.
    static QString salvageNotice(const std::optional<QString>& salvagedURL);
};
