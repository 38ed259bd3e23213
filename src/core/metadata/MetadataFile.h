#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <QString>

#include <exception>
#include <string>

// A metadata file that could not be read or written; the message names the file.
class MetadataFileError final : public std::exception {
public:
    explicit MetadataFileError(std::string message) : m_message(std::move(message)) {}
    const char* what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

// Throws MetadataFileError, or MetadataDecodingError for a file whose text is not a document.
RecordingMetadata readMetadataFile(const QString& path);
// Replaces the file as a whole: a failed save leaves the previous one intact. Throws
// MetadataFileError or MetadataEncodingError. Returns the number of bytes written.
qint64 writeMetadataFile(const RecordingMetadata& metadata, const QString& path);
