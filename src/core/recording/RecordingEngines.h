#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/model/RecordingPackage.h"
#include "core/recording/CameraPrewarmer.h"
#include "core/recording/RecordingFramePath.h"
#include "core/recording/RecordingPreparation.h"
#include "core/time/MediaTime.h"

#include <QCoro/QCoroTask>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class AudioCaptureEngine;
class AudioOnlyRecorder;
class LayerRecordingManager;
class MediaWriterEngine;
class MetadataRecorderEngine;
class RecordingEngineFactory;
class ScreenCaptureEngine;
class StreamRecovery;
class ZoomRenderer;

// The engines and writers of the current recording, from its preparation until the next one
// replaces them, and the frame path between them. The coordinator owns one and decides when
// each step runs; this holds who owns what, and in which order it goes.
//
// Thread: main. The frame path and the engines' handlers read `screenWriter` from engine
// threads.
class RecordingEngines {
public:
    RecordingEngines(RecordingEngineFactory& factory, CameraPrewarmer::DeviceResolver resolve);
    ~RecordingEngines();
    RecordingEngines(const RecordingEngines&) = delete;
    RecordingEngines& operator=(const RecordingEngines&) = delete;

    // Takes a preparation's engines in place of the previous recording's.
    void adopt(RecordingPreparation::Result result);
    // What the engines report to their owner. Each is called on the main thread, however the
    // engine's thread met it, and must check itself that its owner still exists.
    struct Events {
        std::function<void(const QString& phase)> startupPhase;
        std::function<void()> firstVideoFrameAppended;
        // A restarted stream's first frame moved the writer's time: the outage is over.
        std::function<void()> outageEnded;
        // The first failed append; later ones are not reported.
        std::function<void()> writerFailed;
        std::function<void(const StreamError& error)> streamInterrupted;
    };
    // Connects the prepared engines for `mode`: audio straight to the audio-only recorder, or
    // the live zoom, the frame path (reading the owner's pause flag and `recovery`, which must
    // outlive the engines) and the metadata.
    void connect(const RecordingMode& mode, const RecordingConfiguration& configuration,
                 const std::atomic<bool>& isPaused, StreamRecovery& recovery, Events events);
    // Starts each engine of the recording; throws what an engine throws.
    QCoro::Task<void> startCapture(std::function<void(const QString&)> markPhase,
                                   std::function<bool()> isAlive);
    // Stops screen, audio and camera; a screen that fails to stop has stopped all the same.
    QCoro::Task<void> stopCapture(std::function<bool()> isAlive);
    // The file or package the writers finished, as RecordingOutputFinisher::finishOutputs.
    QCoro::Task<QString> finishOutputs(std::optional<RecordingConfiguration> configuration,
                                       double duration, QString unwrittenURL,
                                       std::function<bool()> isAlive);
    // Closes what the writer wrote so far into a "(Recovered)" file; absent when nothing is
    // kept. The metadata is cut to `timelineSeconds`.
    QCoro::Task<std::optional<QString>> salvage(double timelineSeconds,
                                                std::function<bool()> isAlive);
    // The writer's file (or the layer files) removed and the metadata recorder dropped.
    void discardOutputs();
    std::optional<RecordingPackage> recordingPackage() const;
    // Seconds on the written video's time line; absent before the first frame is written.
    std::optional<double> videoTimelineSeconds() const;

    // Takes paused time out of the files: the screen's writer and the camera subtract their
    // offset from every later sample.
    void addTimeOffset(MediaTime offset);

    CameraPrewarmer& camera() { return m_camera; }
    const CameraPrewarmer& camera() const { return m_camera; }
    ScreenCaptureEngine* screen() const { return m_screenEngine.get(); }
    AudioCaptureEngine* audio() const { return m_audioEngine.get(); }
    MediaWriterEngine* screenWriter() const { return m_screenWriter.load(); }
    RecordingFramePath* framePath() const { return m_framePath.get(); }
    LayerRecordingManager* layerRecordingManager() const { return m_layerRecordingManager.get(); }
    AudioOnlyRecorder* audioOnlyRecorder() const { return m_audioOnlyRecorder.get(); }
    MetadataRecorderEngine* metadataRecorder() const { return m_metadataRecorder.get(); }
    ZoomRenderer* zoomRenderer() const { return m_zoomRenderer.get(); }
    bool shouldUseWindowPump() const { return m_shouldUseWindowPump; }
    int pumpFrameRate() const { return m_pumpFrameRate; }

private:
    void releaseLayerRecording();
    void installFramePath(const RecordingConfiguration& configuration,
                          const std::atomic<bool>& isPaused, StreamRecovery& recovery,
                          const Events& events);

    RecordingEngineFactory& m_factory;
    bool m_shouldUseWindowPump = false;
    int m_pumpFrameRate = 60;

    // Declared so that destruction runs engines first (their handlers and the camera point at
    // writers), then the writers' owners.
    std::unique_ptr<LayerRecordingManager> m_layerRecordingManager; // owns the layer writers
    std::unique_ptr<MediaWriterEngine> m_ownedMediaWriter;          // a single-file writer
    // Where screen frames go; read by the handlers.
    std::atomic<MediaWriterEngine*> m_screenWriter{nullptr};
    std::unique_ptr<AudioOnlyRecorder> m_audioOnlyRecorder;
    std::unique_ptr<MetadataRecorderEngine> m_metadataRecorder;
    std::shared_ptr<ZoomRenderer> m_zoomRenderer; // shared with the window pump
    CameraPrewarmer m_camera;
    std::unique_ptr<AudioCaptureEngine> m_audioEngine;
    std::unique_ptr<ScreenCaptureEngine> m_screenEngine;
    // Shared with the engines' handlers, which may still hold it while an engine winds down.
    std::shared_ptr<RecordingFramePath> m_framePath;
};
