#include "core/metadata/MetadataJson.h"

#include "core/metadata/MetadataSchema.h"

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

[[noreturn]] void fail(std::string problem) {
    throw MetadataDecodingError({}, std::move(problem));
}

[[noreturn]] void failType(std::string_view expected, const json& value) {
    fail(fmt::format("expected {}, found {}", expected, value.type_name()));
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

// Every value is read in place by the overload for its type; described objects go through their
// fields (MetadataSchema.h). The leaf overloads come first so that the templates below see them.
void read(const json& value, double& out) {
    out = readNumber(value);
}
void read(const json& value, std::int64_t& out) {
    out = readInteger(value);
}
void read(const json& value, bool& out) {
    out = readBool(value);
}
void read(const json& value, QString& out) {
    out = readString(value);
}
void read(const json& value, QUuid& out) {
    out = readUuid(value);
}
void read(const json& value, QUrl& out) {
    out = readUrl(value);
}
void read(const json& value, Point& out) {
    out = readPoint(value);
}
void read(const json& value, Size& out) {
    out = readSize(value);
}
void read(const json& value, Rect& out) {
    out = readRect(value);
}
void read(const json& value, EasingFunction& out) {
    out = readEnum(value, easingFunctionFromRawValue, "EasingFunction");
}
void read(const json& value, GradientPreset& out) {
    out = readEnum(value, gradientPresetFromRawValue, "GradientPreset");
}
void read(const json& value, StudioBackgroundType& out) {
    out = readEnum(value, studioBackgroundTypeFromRawValue, "StudioBackgroundType");
}
void read(const json& value, ZoomSegmentMode& out) {
    out = readEnum(value, zoomSegmentModeFromRawValue, "ZoomSegmentMode");
}
void read(const json& value, ClickType& out) {
    out = readEnum(value, clickTypeFromRawValue, "ClickType");
}

template <MetadataObject T>
void read(const json& value, T& out);

// What a value is read into. Elements that the program makes get a fresh id; one read from a
// file gets the file's, and drawing a random one first would cost a system call per element.
template <typename T>
T unread() {
    if constexpr (requires { T{.id = QUuid()}; })
        return T{.id = QUuid()};
    else
        return T{};
}

template <typename T>
void read(const json& value, std::vector<T>& out) {
    if (!value.is_array())
        failType("an array", value);
    out.clear();
    out.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        try {
            out.push_back(unread<T>());
            read(value[i], out.back());
        } catch (MetadataDecodingError& error) {
            error.prependIndex(i);
            throw;
        }
    }
}

// Reads the fields of one JSON object; the key joins the path of any error found below it.
class FieldReader {
public:
    explicit FieldReader(const json& object) : m_object(object) {}

    template <typename T>
    void required(const char* key, T& member) {
        auto it = m_object.find(key);
        if (it == m_object.end())
            throw MetadataDecodingError(key, "required key is missing");
        readAt(key, *it, member);
    }

    template <typename T>
    void optional(const char* key, std::optional<T>& member) {
        auto it = m_object.find(key);
        if (it == m_object.end() || it->is_null()) {
            member.reset();
            return;
        }
        readAt(key, *it, member.emplace(unread<T>()));
    }

    template <typename T, typename Default>
    void defaulted(const char* key, T& member, const Default& fallback) {
        auto it = m_object.find(key);
        if (it == m_object.end() || it->is_null()) {
            member = fallback;
            return;
        }
        readAt(key, *it, member);
    }

    void constant(const char*, std::string_view) {}

private:
    template <typename T>
    static void readAt(const char* key, const json& value, T& member) {
        try {
            read(value, member);
        } catch (MetadataDecodingError& error) {
            error.prependKey(key);
            throw;
        }
    }

    const json& m_object;
};

template <MetadataObject T>
void read(const json& value, T& out) {
    if (!value.is_object())
        failType("an object", value);
    FieldReader reader(value);
    metadataFields(reader, out);
    afterReading(out);
}

} // namespace

namespace {
json parseDocument(std::string_view text) {
    try {
        return json::parse(text);
    } catch (const json::exception& error) {
        // Syntax errors, and literals beyond the range of a double.
        // Keep the parser's own description of where and why, without its internal prefix.
        std::string_view message = error.what();
        if (auto at = message.find("] "); at != std::string_view::npos)
            message.remove_prefix(at + 2);
        throw MetadataDecodingError({}, fmt::format("not valid JSON: {}", message));
    }
}
} // namespace

RecordingMetadata decodeMetadata(std::string_view text) {
    RecordingMetadata metadata;
    read(parseDocument(text), metadata);
    return metadata;
}

std::vector<ZoomSegment> decodeZoomSegments(std::string_view text) {
    std::vector<ZoomSegment> segments;
    read(parseDocument(text), segments);
    return segments;
}
