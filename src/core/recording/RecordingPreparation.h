#pragma once

#include "core/model/CaptureSources.h"
#include "core/model/RecordingConfiguration.h"
#include "core/model/SCShareableContent.h"
#include "core/model/WriterConfiguration.h"
#include "core/recording/engines/ScreenCaptureEngine.h"

#include <QDateTime>
#include <QString>

#include <QCoro/QCoroTask>

#include <memory>
#include <optional>
#include <vector>

class AudioCaptureEngine;
class AudioOnlyRecorder;
class CameraCaptureEngine;
class LayerRecordingManager;
class MediaWriterEngine;
class RecordingEngineFactory;
class UserDefaults;

struct RecordingPreparationTiming {
    QString name;
    double deltaMs = 0.0;
    double totalMs = 0.0;
};

// Builds every engine and writer of one recording away from the main thread, so the click on
// Record is answered at once and the writers are open before the first frame arrives.
// Thread: prepareEngines is called on the main thread and does its work on the thread pool;
// the other operations are thread-safe.
class RecordingPreparation {
public:
    struct Result {
        std::unique_ptr<ScreenCaptureEngine> screenEngine;
        std::unique_ptr<AudioCaptureEngine> audioEngine;
        // The writer of a single-file recording; with separate layers the layer manager owns
        // the writers and this stays empty (see screenWriter()).
        std::unique_ptr<MediaWriterEngine> mediaWriter;
        // A camera made for this recording; empty when the prewarmed one was taken instead.
        std::unique_ptr<CameraCaptureEngine> cameraEngine;
        bool usesPrewarmedCamera = false;
        std::unique_ptr<LayerRecordingManager> layerRecordingManager;
        std::unique_ptr<AudioOnlyRecorder> audioOnlyRecorder;
        std::optional<SCShareableContent> shareableContent;
        bool shouldUseWindowPump = false;
        int pumpFrameRate = 60;
        std::vector<RecordingPreparationTiming> preparationTimings;

        // The writer that takes the screen's frames, whoever owns it.
        MediaWriterEngine* screenWriter() const;
    };

    RecordingPreparation(RecordingEngineFactory& factory, const UserDefaults& defaults);

    // `prewarmedCamera` stays owned by the caller and must outlive the task; it is configured
    // from the pool thread while the caller waits.
    QCoro::Task<Result> prepareEngines(RecordingMode mode, RecordingConfiguration configuration,
                                       std::optional<SCShareableContent> cachedContent,
                                       CameraCaptureEngine* prewarmedCamera,
                                       std::optional<QString> prewarmedCameraDeviceName) const;

    // Throws RecordingError invalidConfiguration when a video mode has no stream size.
    WriterConfiguration buildWriterConfiguration(const RecordingConfiguration& configuration,
                                                 const RecordingMode& mode,
                                                 std::optional<SCStreamConfiguration> streamConfig,
                                                 const QString& outputURL) const;
    // Only H.264 is checked: it is the encoder with size limits on common hardware.
    void validateEncoderSupport(VideoEncoder encoder, int width, int height) const;

    // "<prefix><date>.<format>" in the output directory; "recording.mov" in the current folder
    // without a configuration.
    static QString generateOutputURL(const RecordingConfiguration* configuration,
                                     const QDateTime& now);

    // Absent or "default" gives the default device, and so does a name nobody has.
    std::optional<AVCaptureDevice> getMicrophoneDevice(const std::optional<QString>& name) const;
    std::optional<AVCaptureDevice> resolveCameraDevice(const std::optional<QString>& name) const;

private:
    class Timings;
    Result prepareAudioOnly(const RecordingConfiguration& configuration, Timings& timings) const;
    Result prepareVideo(const RecordingMode& mode, const RecordingConfiguration& configuration,
                        const std::optional<SCShareableContent>& cachedContent,
                        CameraCaptureEngine* prewarmedCamera,
                        const std::optional<QString>& prewarmedCameraDeviceName,
                        Timings& timings) const;
    void prepareLayers(Result& result, const RecordingMode& mode,
                       const RecordingConfiguration& configuration,
                       CameraCaptureEngine* prewarmedCamera,
                       const std::optional<QString>& prewarmedCameraDeviceName,
                       Timings& timings) const;

    RecordingEngineFactory& m_factory;
    const UserDefaults& m_defaults;
};
