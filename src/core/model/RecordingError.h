#pragma once

#include "core/model/PermissionType.h"

#include <QString>

#include <exception>
#include <string>

// Why a recording could not be set up or finished. Thrown by set-up and finishing operations;
// frame paths never throw. The texts are user facing and go through Qt's translation.
class RecordingError final : public std::exception {
public:
    enum class Kind {
        permissionDenied,
        captureDeviceUnavailable,
        encoderInitializationFailed,
        fileWriteError,
        invalidConfiguration,
        streamInterrupted,
        insufficientDiskSpace,
        outputDirectoryNotWritable,
        unknown,
    };

    static RecordingError permissionDenied(PermissionType type);
    static RecordingError captureDeviceUnavailable() {
        return RecordingError(Kind::captureDeviceUnavailable);
    }
    static RecordingError encoderInitializationFailed() {
        return RecordingError(Kind::encoderInitializationFailed);
    }
    // `underlying` is the localized description of the error that caused this one.
    static RecordingError fileWriteError(QString underlying);
    static RecordingError invalidConfiguration(QString reason);
    static RecordingError streamInterrupted() { return RecordingError(Kind::streamInterrupted); }
    static RecordingError insufficientDiskSpace() {
        return RecordingError(Kind::insufficientDiskSpace);
    }
    static RecordingError outputDirectoryNotWritable() {
        return RecordingError(Kind::outputDirectoryNotWritable);
    }
    static RecordingError unknown(QString underlying);

    Kind kind() const { return m_kind; }
    PermissionType permissionType() const { return m_permission; }
    // The underlying error's description or the configuration's reason, empty for other kinds.
    const QString& detail() const { return m_detail; }

    QString errorDescription() const;
    QString failureReason() const;
    QString recoverySuggestion() const;
    QString localizedDescription() const { return errorDescription(); }

    const char* what() const noexcept override { return m_what.c_str(); }

    bool operator==(const RecordingError& other) const {
        return m_kind == other.m_kind && m_permission == other.m_permission &&
               m_detail == other.m_detail;
    }

private:
    explicit RecordingError(Kind kind, PermissionType permission = PermissionType::screenRecording,
                            QString detail = {});

    Kind m_kind;
    PermissionType m_permission;
    QString m_detail;
    std::string m_what;
};
