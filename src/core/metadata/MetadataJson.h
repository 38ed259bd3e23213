#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <exception>
#include <string>
#include <string_view>

// The JSON form of the metadata document and of every value in it: UTF-8, pretty-printed, keys
// sorted, points as [x, y], sizes as [w, h], rects as [[x, y], [w, h]], UUIDs in upper case,
// enumerations by raw value, absent optionals without a key. Unknown keys are ignored when
// read. Numbers are written as the shortest text that reads back as the same double.
//
// Thread: any; all functions are pure.

// Why a document could not be read: the key path to the offending value
// ("cursorPositions[3].timestamp"), empty for the whole text, and the problem found there.
class MetadataDecodingError final : public std::exception {
public:
    MetadataDecodingError(std::string codingPath, std::string problem);

    const std::string& codingPath() const { return m_codingPath; }
    const std::string& problem() const { return m_problem; }
    // "<path>: <problem>", or the problem alone at the top level.
    const char* what() const noexcept override { return m_what.c_str(); }

    // Used while the error travels outwards through the containers that hold the value.
    void prependKey(std::string_view key);
    void prependIndex(std::size_t index);

private:
    void update();
    std::string m_codingPath;
    std::string m_problem;
    std::string m_what;
};

// A value that JSON cannot carry (a number that is not finite), named by its key.
class MetadataEncodingError final : public std::exception {
public:
    explicit MetadataEncodingError(std::string message) : m_message(std::move(message)) {}
    const char* what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

// The fields of each value are listed once, in MetadataSchema.h; writing (MetadataWriter.cpp) and
// reading (MetadataJson.cpp) both follow that list. Throws MetadataEncodingError.
std::string encodeMetadata(const RecordingMetadata& metadata);
// Throws MetadataDecodingError, also for text that is not JSON at all.
RecordingMetadata decodeMetadata(std::string_view text);
// A bare list of zoom segments, as the metadata holds them. Throws MetadataDecodingError.
std::vector<ZoomSegment> decodeZoomSegments(std::string_view text);

// Upper-case canonical form, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
std::string uuidString(const QUuid& uuid);
