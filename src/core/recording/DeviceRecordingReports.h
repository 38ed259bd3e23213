#pragma once

#include <QString>

#include <exception>
#include <memory>

class iOSDeviceCaptureEngine;
class NotificationManager;
class RecordingError;

// The attached-device recorder, which records outside the coordinator's start and stop, and
// what its reports tell the person. The coordinator sets its own state around these calls.
// Thread: main.
class DeviceRecordingReports {
public:
    explicit DeviceRecordingReports(NotificationManager& notifications);
    ~DeviceRecordingReports();
    DeviceRecordingReports(const DeviceRecordingReports&) = delete;
    DeviceRecordingReports& operator=(const DeviceRecordingReports&) = delete;

    void setEngine(std::unique_ptr<iOSDeviceCaptureEngine> engine);

    // The engine is released, the finished file logged and announced.
    void didFinish(const QString& fileURL);
    // Logs the failure and returns it as the RecordingError the recording fails with.
    RecordingError reportFailure(const std::exception& error) const;
    // The engine is released and the person told.
    void didFail(const RecordingError& failure);

private:
    void cleanUpEngine();

    NotificationManager& m_notifications;
    std::unique_ptr<iOSDeviceCaptureEngine> m_engine;
};
