// The writing half of MetadataJson.h: the document's text straight from the values, in the layout
// of `nlohmann::json::dump(2)` (keys sorted, two-space indent) without building a JSON tree
// first. An hour of cursor samples is some 100,000 objects, and the tree cost several times the
// text.
#include "core/metadata/MetadataJson.h"
#include "core/metadata/MetadataSchema.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <type_traits>
#include <vector>

namespace {

class PrettyWriter {
public:
    explicit PrettyWriter(std::size_t expectedSize) { m_out.reserve(expectedSize); }

    void beginObject() {
        prefix();
        m_out += '{';
        m_levels.push_back({false, false});
    }
    void endObject() { close('}'); }
    void beginArray() {
        prefix();
        m_out += '[';
        m_levels.push_back({true, false});
    }
    void endArray() { close(']'); }

    // Keys are written in sorted order by the callers; the layout makes that order the file's.
    void key(std::string_view name) {
        separate();
        m_out += '"';
        m_out += name;
        m_out += "\": ";
    }

    void number(double value, const char* name) {
        if (!std::isfinite(value))
            throw MetadataEncodingError(fmt::format("{} is not a finite number ({})", name, value));
        prefix();
        // The shortest text that reads back as the same double, always with a point or exponent
        // so that it reads back as a floating-point number.
        const std::size_t start = m_out.size();
        fmt::format_to(std::back_inserter(m_out), "{}", value);
        if (m_out.find_first_of(".e", start) == std::string::npos)
            m_out += ".0";
    }
    void integer(std::int64_t value) {
        prefix();
        fmt::format_to(std::back_inserter(m_out), "{}", value);
    }
    void boolean(bool value) {
        prefix();
        m_out += value ? "true" : "false";
    }
    // Text that needs no escaping: raw values of enumerations and UUIDs.
    void plain(std::string_view text) {
        prefix();
        m_out += '"';
        m_out += text;
        m_out += '"';
    }
    void text(const QString& value) {
        prefix();
        m_out += nlohmann::json(value.toStdString())
                     .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    void point(double x, double y, const char* name) {
        beginArray();
        number(x, name);
        number(y, name);
        endArray();
    }

    std::string take() { return std::move(m_out); }

private:
    struct Level {
        bool isArray;
        bool hasElements;
    };

    void separate() {
        Level& level = m_levels.back();
        if (level.hasElements)
            m_out += ',';
        level.hasElements = true;
        m_out += '\n';
        m_out.append(m_levels.size() * 2, ' ');
    }
    // Values in arrays start on a line of their own; values of keys follow the key.
    void prefix() {
        if (!m_levels.empty() && m_levels.back().isArray)
            separate();
    }
    void close(char bracket) {
        const bool hadElements = m_levels.back().hasElements;
        m_levels.pop_back();
        if (hadElements) {
            m_out += '\n';
            m_out.append(m_levels.size() * 2, ' ');
        }
        m_out += bracket;
    }

    std::string m_out;
    std::vector<Level> m_levels;
};

// Walks the described fields (MetadataSchema.h) and writes each value by the overload for its
// type. Numbers that are not finite are named by the key that holds them.
class DocumentWriter {
public:
    explicit DocumentWriter(std::size_t expectedSize) : m_out(expectedSize) {}

    template <typename T>
    void required(const char* key, const T& member) {
        m_out.key(key);
        write(member, key);
    }
    template <typename T>
    void optional(const char* key, const std::optional<T>& member) {
        if (member)
            required(key, *member);
    }
    template <typename T, typename Default>
    void defaulted(const char* key, const T& member, const Default&) {
        required(key, member);
    }
    void constant(const char* key, std::string_view text) {
        m_out.key(key);
        m_out.plain(text);
    }

    template <MetadataObject T>
    void write(const T& value, const char*) {
        m_out.beginObject();
        metadataFields(*this, value);
        m_out.endObject();
    }
    template <typename T>
    void write(const std::vector<T>& values, const char* name) {
        m_out.beginArray();
        for (const T& value : values)
            write(value, name);
        m_out.endArray();
    }
    void write(double value, const char* name) { m_out.number(value, name); }
    void write(std::int64_t value, const char*) { m_out.integer(value); }
    void write(bool value, const char*) { m_out.boolean(value); }
    void write(const QString& value, const char*) { m_out.text(value); }
    void write(const QUrl& value, const char*) { m_out.text(value.toString(QUrl::FullyEncoded)); }
    void write(const QUuid& value, const char*) { m_out.plain(uuidString(value)); }
    void write(Point value, const char* name) { m_out.point(value.x, value.y, name); }
    void write(Size value, const char* name) { m_out.point(value.width, value.height, name); }
    void write(const Rect& value, const char* name) {
        m_out.beginArray();
        write(value.origin, name);
        write(value.size, name);
        m_out.endArray();
    }
    template <typename Enum>
    requires std::is_enum_v<Enum>
    void write(Enum value, const char*) { m_out.plain(rawValue(value).toStdString()); }

    std::string take() { return m_out.take(); }

private:
    PrettyWriter m_out;
};

} // namespace

std::string encodeMetadata(const RecordingMetadata& metadata) {
    // About 190 bytes per cursor sample, the bulk of any document.
    DocumentWriter writer(4096 + metadata.cursorPositions.size() * 200 +
                          metadata.cursorClicks.size() * 230);
    writer.write(metadata, "");
    return writer.take();
}
