#pragma once

#include "core/model/RecordingConfiguration.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

// The checks a configuration and its output folder pass before any engine is made. Each throws
// the RecordingError that tells the person what to change. Thread: any.
class RecordingValidator {
public:
    // Bytes free for this user on the volume of a path; absent when it can't be read.
    using DiskSpaceProvider = std::function<std::optional<int64_t>(const QString& path)>;

    explicit RecordingValidator(DiskSpaceProvider diskSpace);

    // The file system's answer for a path. The output folder is made only after the space
    // check, so a folder that doesn't exist yet is measured on its nearest existing parent.
    static std::optional<int64_t> availableSpaceOnVolumeOf(const QString& path);

    void validateConfiguration(const RecordingConfiguration& configuration) const;
    void checkDiskSpace(const QString& path) const;
    void validateOutputDirectory(const QString& path) const;

private:
    DiskSpaceProvider m_diskSpace;
};
