#include "core/model/RecordingError.h"

#include <QCoreApplication>

namespace {
QString tr(const char* text, const char* comment) {
    return QCoreApplication::translate("RecordingError", text, comment);
}
} // namespace

QString displayName(PermissionType type) {
    switch (type) {
    case PermissionType::screenRecording:
        return QStringLiteral("Screen Recording");
    case PermissionType::microphone:
        return QStringLiteral("Microphone");
    case PermissionType::camera:
        return QStringLiteral("Camera");
    }
    return {};
}

QString settingsPath(PermissionType type) {
    return displayName(type);
}

RecordingError::RecordingError(Kind kind, PermissionType permission, QString detail)
    : m_kind(kind), m_permission(permission), m_detail(std::move(detail)),
      m_what(errorDescription().toStdString()) {}

RecordingError RecordingError::permissionDenied(PermissionType type) {
    return RecordingError(Kind::permissionDenied, type);
}

RecordingError RecordingError::fileWriteError(QString underlying) {
    return RecordingError(Kind::fileWriteError, PermissionType::screenRecording,
                          std::move(underlying));
}

RecordingError RecordingError::invalidConfiguration(QString reason) {
    return RecordingError(Kind::invalidConfiguration, PermissionType::screenRecording,
                          std::move(reason));
}

RecordingError RecordingError::unknown(QString underlying) {
    return RecordingError(Kind::unknown, PermissionType::screenRecording, std::move(underlying));
}

QString RecordingError::errorDescription() const {
    switch (m_kind) {
    case Kind::permissionDenied:
        if (m_permission == PermissionType::screenRecording) {
            return tr("Screen Recording permission is required. If you just granted it, quit and "
                      "reopen tavelquiston so macOS applies the permission.",
                      "Screen recording permission denied error");
        }
        return tr("Permission denied for %1. Please grant access in System Settings.",
                  "Permission denied error")
            .arg(displayName(m_permission));
    case Kind::captureDeviceUnavailable:
        return tr("The selected capture device is unavailable. Please select a different device.",
                  "Device unavailable error");
    case Kind::encoderInitializationFailed:
        return tr(
            "Failed to initialize video encoder. The selected resolution may not be supported.",
            "Encoder initialization error");
    case Kind::fileWriteError:
        return tr("Failed to write recording file: %1", "File write error").arg(m_detail);
    case Kind::invalidConfiguration:
        return tr("Invalid recording configuration: %1", "Invalid configuration error")
            .arg(m_detail);
    case Kind::streamInterrupted:
        return tr("Recording stream was interrupted. The recording has been stopped.",
                  "Stream interrupted error");
    case Kind::insufficientDiskSpace:
        return tr(
            "Insufficient disk space to continue recording. Please free up space and try again.",
            "Insufficient disk space error");
    case Kind::outputDirectoryNotWritable:
        return tr(
            "Cannot write to the selected output directory. Please choose a different location.",
            "Output directory not writable error");
    case Kind::unknown:
        return tr("An unknown error occurred: %1", "Unknown error").arg(m_detail);
    }
    return {};
}

QString RecordingError::failureReason() const {
    switch (m_kind) {
    case Kind::permissionDenied:
        return QCoreApplication::translate("RecordingError", "Missing %1 permission")
            .arg(displayName(m_permission));
    case Kind::captureDeviceUnavailable:
        return QCoreApplication::translate("RecordingError", "Device unavailable");
    case Kind::encoderInitializationFailed:
        return QCoreApplication::translate("RecordingError", "Encoder initialization failed");
    case Kind::fileWriteError:
        return QCoreApplication::translate("RecordingError", "File write failed");
    case Kind::invalidConfiguration:
        return QCoreApplication::translate("RecordingError", "Invalid configuration");
    case Kind::streamInterrupted:
        return QCoreApplication::translate("RecordingError", "Stream interrupted");
    case Kind::insufficientDiskSpace:
        return QCoreApplication::translate("RecordingError", "Insufficient disk space");
    case Kind::outputDirectoryNotWritable:
        return QCoreApplication::translate("RecordingError", "Output directory not writable");
    case Kind::unknown:
        return QCoreApplication::translate("RecordingError", "Unknown error");
    }
    return {};
}

QString RecordingError::recoverySuggestion() const {
    switch (m_kind) {
    case Kind::permissionDenied:
        if (m_permission == PermissionType::screenRecording) {
            return tr("Open System Settings > Privacy & Security > Screen Recording, enable "
                      "tavelquiston, then quit and reopen the app.",
                      "Screen recording permission denied error");
        }
        return tr("Open System Settings > Privacy & Security > %1 and grant permission to "
                  "tavelquiston.",
                  "Permission denied error")
            .arg(displayName(m_permission));
    case Kind::captureDeviceUnavailable:
        return tr("Try selecting a different capture device or reconnecting the device.",
                  "Device unavailable error");
    case Kind::encoderInitializationFailed:
        return tr("Try using a different encoder (H.265 instead of H.264) or lower resolution.",
                  "Encoder initialization error");
    case Kind::fileWriteError:
        return tr("Check that you have write permissions to the output directory and sufficient "
                  "disk space.",
                  "File write error");
    case Kind::invalidConfiguration:
        return tr("Review your recording settings and ensure all required fields are properly "
                  "configured.",
                  "Invalid configuration error");
    case Kind::streamInterrupted:
        return tr("The partial recording has been saved. Try starting a new recording.",
                  "Stream interrupted error");
    case Kind::insufficientDiskSpace:
        return tr("Free up at least 1GB of disk space before starting a new recording.",
                  "Insufficient disk space error");
    case Kind::outputDirectoryNotWritable:
        return tr("Select a different output directory in Settings.",
                  "Output directory not writable error");
    case Kind::unknown:
        return tr("Try restarting the application or your computer.", "Unknown error");
    }
    return {};
}
