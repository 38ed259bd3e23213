#include "core/recording/RecordingValidator.h"

#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/support/Formatters.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

RecordingValidator::RecordingValidator(DiskSpaceProvider diskSpace)
    : m_diskSpace(std::move(diskSpace)) {}

std::optional<int64_t> RecordingValidator::availableSpaceOnVolumeOf(const QString& path) {
    QString existing = QFileInfo(path).absoluteFilePath();
    while (!QFileInfo::exists(existing)) {
        const QString parent = QFileInfo(existing).absolutePath();
        if (parent == existing)
            break;
        existing = parent;
    }
    return availableDiskSpace(existing);
}

void RecordingValidator::validateConfiguration(const RecordingConfiguration& configuration) const {
    const auto& rates = Constants::availableFrameRates;
    if (std::find(rates.begin(), rates.end(), configuration.frameRate) == rates.end())
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Invalid frame rate: %1").arg(configuration.frameRate));
    // Output goes to a local folder given by an absolute path; anything else (a remote URL, a
    // relative path that depends on the working folder) is refused.
    if (configuration.outputDirectory.isEmpty() ||
        configuration.outputDirectory.contains(QLatin1String("://")) ||
        QDir::isRelativePath(configuration.outputDirectory))
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Output directory must be a file URL"));
    if (configuration.recordMicrophone && !configuration.microphoneDevice)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Microphone device not specified"));
    // Echo cancellation is tied to the default input. An absent device fails too, also when the
    // microphone is off: a stored echo setting without a microphone stops the start.
    if (configuration.enableAEC && configuration.microphoneDevice != QStringLiteral("default"))
        throw RecordingError::invalidConfiguration(
            QStringLiteral("AEC only works with default microphone"));
}

void RecordingValidator::checkDiskSpace(const QString& path) const {
    const std::optional<int64_t> available = m_diskSpace(path);
    if (!available)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Cannot determine available disk space"));
    if (*available < Constants::minimumDiskSpaceBytes)
        throw RecordingError::insufficientDiskSpace();
}

void RecordingValidator::validateOutputDirectory(const QString& path) const {
    const QFileInfo info(path);
    if (info.exists()) {
        if (!info.isDir() || !info.isWritable())
            throw RecordingError::outputDirectoryNotWritable();
        return;
    }
    if (!QDir().mkpath(path))
        throw RecordingError::fileWriteError(
            QStringLiteral("Could not create the folder %1").arg(path));
}
