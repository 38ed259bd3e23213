#pragma once

#include "platform/v4l2/V4L2CaptureDeviceDiscovery.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>

class DeviceRecordingWindow;
class RecordingCoordinator;
class RecordingResultOpener;
class UserDefaults;
class V4L2DeviceCaptureEngine;

// Records an attached device from the application: the engine (handed to the coordinator, which
// owns it), the preview window with its Stop button, and the end, which reaches the coordinator
// through deviceRecordingDidFinish / deviceRecordingDidFail and opens the movie in the trimmer
// like any other recording (after a failure, the part recorded before it).
// Thread: main.
class DeviceRecordingController final : public QObject {
    Q_OBJECT
public:
    DeviceRecordingController(RecordingCoordinator& coordinator, RecordingResultOpener& opener,
                              const UserDefaults& defaults, QObject* parent = nullptr);
    ~DeviceRecordingController() override;

    // Starts recording `device` with its own sound into the output folder of the settings, and
    // shows the preview. False, after an alert saying why, when it cannot start.
    bool start(const CaptureDeviceInfo& device);
    // Finishes the file; recordingEnded follows once it is on disk.
    void stop();

    bool isRecording() const { return m_engine != nullptr; }
    // The preview while recording; null otherwise.
    DeviceRecordingWindow* window() const { return m_window.get(); }

signals:
    // The recording is over: `finished` when the whole movie was written, else it failed (and
    // `fileURL` is the part recorded before the failure, or empty).
    void recordingEnded(bool finished, const QString& fileURL);

private:
    void onFinished(const QString& fileURL);
    void onFailed(const std::exception& error, const QString& partialFileURL);
    void closeWindow();

    RecordingCoordinator& m_coordinator;
    RecordingResultOpener& m_opener;
    const UserDefaults& m_defaults;
    // Owned by the coordinator, which destroys it in its finish and fail reports; null when
    // nothing records.
    V4L2DeviceCaptureEngine* m_engine = nullptr;
    // Fed from the engine's capture thread: it goes only after the engine (and that thread).
    std::unique_ptr<DeviceRecordingWindow> m_window;
    QTimer m_clock;
    QElapsedTimer m_elapsed;
};
