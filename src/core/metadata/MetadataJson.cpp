#include "core/metadata/MetadataJson.h"

#include "core/metadata/MetadataWriter.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include <cmath>
#include <limits>

using nlohmann::json;

MetadataDecodingError::MetadataDecodingError(std::string codingPath, std::string problem)
    : m_codingPath(std::move(codingPath)), m_problem(std::move(problem)) {
    update();
}

void MetadataDecodingError::prependKey(std::string_view key) {
    if (m_codingPath.empty())
        m_codingPath = std::string(key);
    else if (m_codingPath.front() == '[')
        m_codingPath = std::string(key) + m_codingPath;
    else
        m_codingPath = fmt::format("{}.{}", key, m_codingPath);
    update();
}

void MetadataDecodingError::prependIndex(std::size_t index) {
    if (m_codingPath.empty() || m_codingPath.front() == '[')
        m_codingPath = fmt::format("[{}]{}", index, m_codingPath);
    else
        m_codingPath = fmt::format("[{}].{}", index, m_codingPath);
    update();
}

void MetadataDecodingError::update() {
    m_what = m_codingPath.empty() ? m_problem : fmt::format("{}: {}", m_codingPath, m_problem);
}

std::string uuidString(const QUuid& uuid) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text(36, '-');
    std::size_t at = 0;
    auto put = [&](std::uint64_t value, int nibbles) {
        for (int i = nibbles - 1; i >= 0; --i)
            text[at++] = digits[(value >> (4 * i)) & 0xF];
    };
    put(uuid.data1, 8);
    ++at;
    put(uuid.data2, 4);
    ++at;
    put(uuid.data3, 4);
    ++at;
    put(uuid.data4[0], 2);
    put(uuid.data4[1], 2);
    ++at;
    for (int i = 2; i < 8; ++i)
        put(uuid.data4[i], 2);
    return text;
}

namespace {

// ---- reading ----

[[noreturn]] void fail(std::string problem) {
    throw MetadataDecodingError({}, std::move(problem));
}

[[noreturn]] void failType(std::string_view expected, const json& value) {
    fail(fmt::format("expected {}, found {}", expected, value.type_name()));
}

const json& object(const json& value) {
    if (!value.is_object())
        failType("an object", value);
    return value;
}

// Runs `read` on the value of a required key; the key joins the path of any error.
template <typename Read>
auto field(const json& object, const char* key, Read read) {
    auto it = object.find(key);
    if (it == object.end())
        throw MetadataDecodingError(key, "required key is missing");
    try {
        return read(*it);
    } catch (MetadataDecodingError& error) {
        error.prependKey(key);
        throw;
    }
}

// An absent key and an explicit null both mean an absent value, as for any optional.
template <typename Read>
auto optionalField(const json& object, const char* key, Read read)
    -> std::optional<decltype(read(object))> {
    auto it = object.find(key);
    if (it == object.end() || it->is_null())
        return std::nullopt;
    try {
        return read(*it);
    } catch (MetadataDecodingError& error) {
        error.prependKey(key);
        throw;
    }
}

double readNumber(const json& value) {
    if (!value.is_number())
        failType("a number", value);
    const double number = value.get<double>();
    // The parser turns a literal beyond the double range into infinity; no such value is valid.
    if (!std::isfinite(number))
        fail("expected a finite number");
    return number;
}

std::int64_t readInteger(const json& value) {
    if (value.is_number_integer() && !value.is_number_unsigned())
        return value.get<std::int64_t>();
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number > std::uint64_t(std::numeric_limits<std::int64_t>::max()))
            fail(fmt::format("integer {} is out of range", number));
        return std::int64_t(number);
    }
    if (value.is_number_float()) {
        const double number = value.get<double>();
        // 2^63 is exactly representable; anything at or above it is not an Int.
        if (std::isfinite(number) && std::trunc(number) == number &&
            number >= -9223372036854775808.0 && number < 9223372036854775808.0)
            return std::int64_t(number);
        fail(fmt::format("expected an integer, found {}", number));
    }
    failType("an integer", value);
}

bool readBool(const json& value) {
    if (!value.is_boolean())
        failType("a boolean", value);
    return value.get<bool>();
}

const std::string& readStdString(const json& value) {
    if (!value.is_string())
        failType("a string", value);
    return value.get_ref<const std::string&>();
}

QString readString(const json& value) {
    return QString::fromStdString(readStdString(value));
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// Exactly the 36-character canonical form, in either case; braces or other spellings are refused.
QUuid readUuid(const json& value) {
    const std::string& text = readStdString(value);
    auto invalid = [&]() { fail(fmt::format("invalid UUID string \"{}\"", text.substr(0, 64))); };
    if (text.size() != 36)
        invalid();
    std::uint8_t bytes[16];
    std::size_t byte = 0;
    for (std::size_t i = 0; i < 36;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-')
                invalid();
            ++i;
            continue;
        }
        const int high = hexDigit(text[i]);
        const int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0)
            invalid();
        bytes[byte++] = std::uint8_t(high * 16 + low);
        i += 2;
    }
    return QUuid(std::uint32_t(bytes[0]) << 24 | std::uint32_t(bytes[1]) << 16 |
                     std::uint32_t(bytes[2]) << 8 | bytes[3],
                 std::uint16_t(bytes[4] << 8 | bytes[5]), std::uint16_t(bytes[6] << 8 | bytes[7]),
                 bytes[8], bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14],
                 bytes[15]);
}

template <typename Enum>
Enum readEnum(const json& value, std::optional<Enum> (*fromRawValue)(const QString&),
              std::string_view typeName) {
    const std::string& raw = readStdString(value);
    if (auto result = fromRawValue(QString::fromStdString(raw)))
        return *result;
    fail(fmt::format("\"{}\" is not a {}", raw.substr(0, 64), typeName));
}

// Both numbers of a point or a size, and nothing more.
std::pair<double, double> readPair(const json& value) {
    if (!value.is_array())
        failType("an array of two numbers", value);
    if (value.size() != 2)
        fail(fmt::format("expected an array of two numbers, found {} elements", value.size()));
    double numbers[2];
    for (std::size_t i = 0; i < 2; ++i) {
        try {
            numbers[i] = readNumber(value[i]);
        } catch (MetadataDecodingError& error) {
            error.prependIndex(i);
            throw;
        }
    }
    return {numbers[0], numbers[1]};
}

Point readPoint(const json& value) {
    auto [x, y] = readPair(value);
    return {x, y};
}

Size readSize(const json& value) {
    auto [width, height] = readPair(value);
    return {width, height};
}

Rect readRect(const json& value) {
    if (!value.is_array())
        failType("an array of a point and a size", value);
    if (value.size() != 2)
        fail(fmt::format("expected an array of a point and a size, found {} elements",
                         value.size()));
    Point origin;
    Size size;
    try {
        origin = readPoint(value[0]);
    } catch (MetadataDecodingError& error) {
        error.prependIndex(0);
        throw;
    }
    try {
        size = readSize(value[1]);
    } catch (MetadataDecodingError& error) {
        error.prependIndex(1);
        throw;
    }
    return Rect(origin, size);
}

template <typename Read>
auto readArray(const json& value, Read read) {
    if (!value.is_array())
        failType("an array", value);
    std::vector<decltype(read(value))> result;
    result.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        try {
            result.push_back(read(value[i]));
        } catch (MetadataDecodingError& error) {
            error.prependIndex(i);
            throw;
        }
    }
    return result;
}

EasingFunction readEasing(const json& value) {
    return readEnum(value, easingFunctionFromRawValue, "EasingFunction");
}

CodableColor readColor(const json& value) {
    object(value);
    return {field(value, "red", readNumber), field(value, "green", readNumber),
            field(value, "blue", readNumber), field(value, "alpha", readNumber)};
}

GradientSettings readGradient(const json& value) {
    object(value);
    return {field(value, "colors", [](const json& v) { return readArray(v, readColor); }),
            field(value, "angle", readNumber), optionalField(value, "preset", [](const json& v) {
                return readEnum(v, gradientPresetFromRawValue, "GradientPreset");
            })};
}

// The URL is brought to the form that its own absolute string reads back as, so that a document
// written again reads back equal: the parser normalises some spellings (a "#" inside a fragment,
// for one) differently on a second reading.
QUrl readUrl(const json& value) {
    const std::string& text = readStdString(value);
    QUrl url(QString::fromStdString(text), QUrl::TolerantMode);
    if (text.empty())
        fail("invalid URL \"\"");
    for (int pass = 0; pass < 3 && url.isValid(); ++pass) {
        QUrl again(url.toString(QUrl::FullyEncoded), QUrl::TolerantMode);
        if (again == url)
            return url;
        url = std::move(again);
    }
    fail(fmt::format("invalid URL \"{}\"", text.substr(0, 64)));
}

BackgroundSettings readBackground(const json& value) {
    object(value);
    BackgroundSettings settings;
    settings.type = field(value, "type", [](const json& v) {
        return readEnum(v, studioBackgroundTypeFromRawValue, "StudioBackgroundType");
    });
    settings.gradient = optionalField(value, "gradient", readGradient);
    settings.color = optionalField(value, "color", readColor);
    settings.imageURL = optionalField(value, "imageURL", readUrl);
    settings.opacity = field(value, "opacity", readNumber);
    return settings;
}

ZoomEvent readZoomEvent(const json& value) {
    object(value);
    return {.id = field(value, "id", readUuid),
            .timestamp = field(value, "timestamp", readNumber),
            .position = field(value, "position", readPoint),
            .level = field(value, "level", readNumber),
            .duration = field(value, "duration", readNumber),
            .easing = field(value, "easing", readEasing)};
}

ZoomKeyframe readZoomKeyframe(const json& value) {
    object(value);
    return {.id = field(value, "id", readUuid),
            .time = field(value, "time", readNumber),
            .center = field(value, "center", readPoint),
            .level = field(value, "level", readNumber),
            .easeIn = field(value, "easeIn", readNumber),
            .easeOut = field(value, "easeOut", readNumber),
            .easing = field(value, "easing", readEasing)};
}

// The one hand-written reading of the format: keys added after the first version have
// defaults, so older documents stay readable. None of the initialiser's limits apply here.
ZoomSegment readZoomSegment(const json& value) {
    object(value);
    ZoomSegment segment;
    segment.id = field(value, "id", readUuid);
    segment.startTime = field(value, "startTime", readNumber);
    segment.endTime = field(value, "endTime", readNumber);
    segment.zoomLevel = field(value, "zoomLevel", readNumber);
    segment.easeIn = field(value, "easeIn", readNumber);
    segment.easeOut = field(value, "easeOut", readNumber);
    segment.easing = field(value, "easing", readEasing);
    segment.panSmoothing =
        optionalField(value, "panSmoothing", readNumber).value_or(ZoomSegment::defaultPanSmoothing);
    segment.deadZone =
        optionalField(value, "deadZone", readNumber).value_or(ZoomSegment::defaultDeadZone);
    segment.mode = optionalField(value, "mode", [](const json& v) {
                       return readEnum(v, zoomSegmentModeFromRawValue, "ZoomSegmentMode");
                   }).value_or(ZoomSegmentMode::manual);
    if (auto focus = optionalField(value, "focusPoint", readPoint))
        segment.focusPoint = Point{std::clamp(focus->x, 0.0, 1.0), std::clamp(focus->y, 0.0, 1.0)};
    segment.followCursor = optionalField(value, "followCursor", readBool).value_or(false) ||
                           segment.mode == ZoomSegmentMode::auto_;
    segment.autoReason = optionalField(value, "autoReason", readString);
    segment.attentionKind = optionalField(value, "attentionKind", readString);
    return segment;
}

CameraKeyframe readCameraKeyframe(const json& value) {
    object(value);
    return {.id = field(value, "id", readUuid),
            .timestamp = field(value, "timestamp", readNumber),
            .frame = field(value, "frame", readRect),
            .easing = field(value, "easing", readEasing)};
}

CursorClick readCursorClick(const json& value) {
    object(value);
    return {.id = field(value, "id", readUuid),
            .timestamp = field(value, "timestamp", readNumber),
            .position = field(value, "position", readPoint),
            .clickType = field(value, "clickType", [](const json& v) {
                return readEnum(v, clickTypeFromRawValue, "ClickType");
            })};
}

CursorPosition readCursorPosition(const json& value) {
    object(value);
    return {.id = field(value, "id", readUuid),
            .timestamp = field(value, "timestamp", readNumber),
            .position = field(value, "position", readPoint)};
}

template <typename Read>
auto arrayOf(Read read) {
    return [read](const json& value) { return readArray(value, read); };
}

// `version` is deliberately not read: any version string, or none, is accepted.
RecordingMetadata readMetadata(const json& value) {
    object(value);
    RecordingMetadata metadata;
    metadata.backgroundSettings = optionalField(value, "backgroundSettings", readBackground);
    metadata.cameraPositions = field(value, "cameraPositions", arrayOf(readCameraKeyframe));
    metadata.cursorClicks = field(value, "cursorClicks", arrayOf(readCursorClick));
    metadata.cursorPositions = field(value, "cursorPositions", arrayOf(readCursorPosition));
    metadata.duration = field(value, "duration", readNumber);
    metadata.frameRate = field(value, "frameRate", readInteger);
    metadata.resolution = field(value, "resolution", readSize);
    metadata.zoomEvents = field(value, "zoomEvents", arrayOf(readZoomEvent));
    metadata.zoomKeyframes = field(value, "zoomKeyframes", arrayOf(readZoomKeyframe));
    metadata.zoomSegments = field(value, "zoomSegments", arrayOf(readZoomSegment));
    return metadata;
}

// ---- writing ----

json number(double value, const char* key) {
    if (!std::isfinite(value))
        throw MetadataEncodingError(fmt::format("{} is not a finite number ({})", key, value));
    return json(value);
}

json pair(double first, double second, const char* key) {
    json array = json::array();
    array.get_ref<json::array_t&>().reserve(2);
    array.push_back(number(first, key));
    array.push_back(number(second, key));
    return array;
}

json string(const QString& text) {
    return json(text.toStdString());
}

template <typename T>
json array(const std::vector<T>& values) {
    json result = json::array();
    auto& elements = result.get_ref<json::array_t&>();
    elements.reserve(values.size());
    for (const T& value : values)
        elements.emplace_back(value);
    return result;
}

} // namespace

void to_json(json& j, const Point& value) {
    j = pair(value.x, value.y, "point");
}
void from_json(const json& j, Point& value) {
    value = readPoint(j);
}
void to_json(json& j, const Size& value) {
    j = pair(value.width, value.height, "size");
}
void from_json(const json& j, Size& value) {
    value = readSize(j);
}

void to_json(json& j, const Rect& value) {
    j = json::array();
    j.push_back(json(value.origin));
    j.push_back(json(value.size));
}
void from_json(const json& j, Rect& value) {
    value = readRect(j);
}

void to_json(json& j, const CodableColor& value) {
    j = json::object();
    j["red"] = number(value.red, "red");
    j["green"] = number(value.green, "green");
    j["blue"] = number(value.blue, "blue");
    j["alpha"] = number(value.alpha, "alpha");
}
void from_json(const json& j, CodableColor& value) {
    value = readColor(j);
}

void to_json(json& j, const GradientSettings& value) {
    j = json::object();
    j["colors"] = array(value.colors);
    j["angle"] = number(value.angle, "angle");
    if (value.preset)
        j["preset"] = string(rawValue(*value.preset));
}
void from_json(const json& j, GradientSettings& value) {
    value = readGradient(j);
}

void to_json(json& j, const BackgroundSettings& value) {
    j = json::object();
    j["type"] = string(rawValue(value.type));
    if (value.gradient)
        j["gradient"] = *value.gradient;
    if (value.color)
        j["color"] = *value.color;
    if (value.imageURL)
        j["imageURL"] = string(value.imageURL->toString(QUrl::FullyEncoded));
    j["opacity"] = number(value.opacity, "opacity");
}
void from_json(const json& j, BackgroundSettings& value) {
    value = readBackground(j);
}

void to_json(json& j, const ZoomEvent& value) {
    j = json::object();
    j["id"] = uuidString(value.id);
    j["timestamp"] = number(value.timestamp, "timestamp");
    j["position"] = pair(value.position.x, value.position.y, "position");
    j["level"] = number(value.level, "level");
    j["duration"] = number(value.duration, "duration");
    j["easing"] = string(rawValue(value.easing));
}
void from_json(const json& j, ZoomEvent& value) {
    value = readZoomEvent(j);
}

void to_json(json& j, const ZoomKeyframe& value) {
    j = json::object();
    j["id"] = uuidString(value.id);
    j["time"] = number(value.time, "time");
    j["center"] = pair(value.center.x, value.center.y, "center");
    j["level"] = number(value.level, "level");
    j["easeIn"] = number(value.easeIn, "easeIn");
    j["easeOut"] = number(value.easeOut, "easeOut");
    j["easing"] = string(rawValue(value.easing));
}
void from_json(const json& j, ZoomKeyframe& value) {
    value = readZoomKeyframe(j);
}

void to_json(json& j, const ZoomSegment& value) {
    j = json::object();
    j["id"] = uuidString(value.id);
    j["startTime"] = number(value.startTime, "startTime");
    j["endTime"] = number(value.endTime, "endTime");
    j["zoomLevel"] = number(value.zoomLevel, "zoomLevel");
    j["easeIn"] = number(value.easeIn, "easeIn");
    j["easeOut"] = number(value.easeOut, "easeOut");
    j["easing"] = string(rawValue(value.easing));
    j["panSmoothing"] = number(value.panSmoothing, "panSmoothing");
    j["deadZone"] = number(value.deadZone, "deadZone");
    j["mode"] = string(rawValue(value.mode));
    if (value.focusPoint)
        j["focusPoint"] = pair(value.focusPoint->x, value.focusPoint->y, "focusPoint");
    j["followCursor"] = value.followCursor;
    if (value.autoReason)
        j["autoReason"] = string(*value.autoReason);
    if (value.attentionKind)
        j["attentionKind"] = string(*value.attentionKind);
}
void from_json(const json& j, ZoomSegment& value) {
    value = readZoomSegment(j);
}

void to_json(json& j, const CameraKeyframe& value) {
    j = json::object();
    j["id"] = uuidString(value.id);
    j["timestamp"] = number(value.timestamp, "timestamp");
    j["frame"] = value.frame;
    j["easing"] = string(rawValue(value.easing));
}
void from_json(const json& j, CameraKeyframe& value) {
    value = readCameraKeyframe(j);
}

void to_json(json& j, const CursorClick& value) {
    j = json::object();
    j["id"] = uuidString(value.id);
    j["timestamp"] = number(value.timestamp, "timestamp");
    j["position"] = pair(value.position.x, value.position.y, "position");
    j["clickType"] = string(rawValue(value.clickType));
}
void from_json(const json& j, CursorClick& value) {
    value = readCursorClick(j);
}

void to_json(json& j, const CursorPosition& value) {
    j = json::object();
    j["id"] = uuidString(value.id);
    j["timestamp"] = number(value.timestamp, "timestamp");
    j["position"] = pair(value.position.x, value.position.y, "position");
}
void from_json(const json& j, CursorPosition& value) {
    value = readCursorPosition(j);
}

void to_json(json& j, const RecordingMetadata& value) {
    j = json::object();
    if (value.backgroundSettings)
        j["backgroundSettings"] = *value.backgroundSettings;
    j["cameraPositions"] = array(value.cameraPositions);
    j["cursorClicks"] = array(value.cursorClicks);
    j["cursorPositions"] = array(value.cursorPositions);
    j["duration"] = number(value.duration, "duration");
    j["frameRate"] = value.frameRate;
    j["resolution"] = pair(value.resolution.width, value.resolution.height, "resolution");
    j["version"] = std::string(RecordingMetadata::version);
    j["zoomEvents"] = array(value.zoomEvents);
    j["zoomKeyframes"] = array(value.zoomKeyframes);
    j["zoomSegments"] = array(value.zoomSegments);
}
void from_json(const json& j, RecordingMetadata& value) {
    value = readMetadata(j);
}

std::string encodeMetadata(const RecordingMetadata& metadata) {
    return writeMetadataText(metadata);
}

RecordingMetadata decodeMetadata(std::string_view text) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::exception& error) {
        // Syntax errors, and literals beyond the range of a double.
        // Keep the parser's own description of where and why, without its internal prefix.
        std::string_view message = error.what();
        if (auto at = message.find("] "); at != std::string_view::npos)
            message.remove_prefix(at + 2);
        throw MetadataDecodingError({}, fmt::format("not valid JSON: {}", message));
    }
    return readMetadata(document);
}
