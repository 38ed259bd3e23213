#include "core/recording/DeviceRecordingReports.h"

#include "core/model/RecordingError.h"
#include "core/recording/engines/iOSDeviceCaptureEngine.h"
#include "core/support/ErrorReporter.h"
#include "core/support/NotificationManager.h"

#include <QFileInfo>

namespace {
QString failureContext() {
    return QStringLiteral("iOS device recording failed");
}
} // namespace

DeviceRecordingReports::DeviceRecordingReports(NotificationManager& notifications)
    : m_notifications(notifications) {}

DeviceRecordingReports::~DeviceRecordingReports() = default;

void DeviceRecordingReports::setEngine(std::unique_ptr<iOSDeviceCaptureEngine> engine) {
    m_engine = std::move(engine);
}

void DeviceRecordingReports::didFinish(const QString& fileURL) {
    cleanUpEngine();
    ErrorReporter::shared().info(QStringLiteral("iOS device recording completed: ") +
                                 QFileInfo(fileURL).fileName());
    m_notifications.sendCompletionNotification(fileURL);
}

RecordingError DeviceRecordingReports::reportFailure(const std::exception& error) const {
    ErrorReporter::shared().report(error, failureContext());
    const auto* recordingError = dynamic_cast<const RecordingError*>(&error);
    return recordingError ? *recordingError
                          : RecordingError::unknown(QString::fromStdString(error.what()));
}

void DeviceRecordingReports::didFail(const RecordingError& failure) {
    cleanUpEngine();
    ErrorReporter::shared().reportAndAlert(failure, failureContext(),
                                           QStringLiteral("Recording Failed"));
}

void DeviceRecordingReports::cleanUpEngine() {
    if (m_engine)
        m_engine->cleanup();
    m_engine.reset();
}
