#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <nlohmann/json_fwd.hpp>

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

// Throws MetadataEncodingError.
std::string encodeMetadata(const RecordingMetadata& metadata);
// Throws MetadataDecodingError, also for text that is not JSON at all.
RecordingMetadata decodeMetadata(std::string_view text);

// Upper-case canonical form, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
std::string uuidString(const QUuid& uuid);

// nlohmann conversions, found by argument-dependent lookup. from_json throws
// MetadataDecodingError, to_json throws MetadataEncodingError.
void to_json(nlohmann::json& json, const Point& value);
void from_json(const nlohmann::json& json, Point& value);
void to_json(nlohmann::json& json, const Size& value);
void from_json(const nlohmann::json& json, Size& value);
void to_json(nlohmann::json& json, const Rect& value);
void from_json(const nlohmann::json& json, Rect& value);
void to_json(nlohmann::json& json, const CodableColor& value);
void from_json(const nlohmann::json& json, CodableColor& value);
void to_json(nlohmann::json& json, const GradientSettings& value);
void from_json(const nlohmann::json& json, GradientSettings& value);
void to_json(nlohmann::json& json, const BackgroundSettings& value);
void from_json(const nlohmann::json& json, BackgroundSettings& value);
void to_json(nlohmann::json& json, const ZoomEvent& value);
void from_json(const nlohmann::json& json, ZoomEvent& value);
void to_json(nlohmann::json& json, const ZoomKeyframe& value);
void from_json(const nlohmann::json& json, ZoomKeyframe& value);
void to_json(nlohmann::json& json, const ZoomSegment& value);
void from_json(const nlohmann::json& json, ZoomSegment& value);
void to_json(nlohmann::json& json, const CameraKeyframe& value);
void from_json(const nlohmann::json& json, CameraKeyframe& value);
void to_json(nlohmann::json& json, const CursorClick& value);
void from_json(const nlohmann::json& json, CursorClick& value);
void to_json(nlohmann::json& json, const CursorPosition& value);
void from_json(const nlohmann::json& json, CursorPosition& value);
void to_json(nlohmann::json& json, const RecordingMetadata& value);
void from_json(const nlohmann::json& json, RecordingMetadata& value);
