#include "core/metadata/MetadataWriter.h"

#include "core/metadata/MetadataJson.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include <cmath>
#include <iterator>
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

void write(PrettyWriter& w, const CodableColor& c) {
    w.beginObject();
    w.key("alpha");
    w.number(c.alpha, "alpha");
    w.key("blue");
    w.number(c.blue, "blue");
    w.key("green");
    w.number(c.green, "green");
    w.key("red");
    w.number(c.red, "red");
    w.endObject();
}

void write(PrettyWriter& w, const BackgroundSettings& b) {
    w.beginObject();
    if (b.color) {
        w.key("color");
        write(w, *b.color);
    }
    if (b.gradient) {
        w.key("gradient");
        w.beginObject();
        w.key("angle");
        w.number(b.gradient->angle, "angle");
        w.key("colors");
        w.beginArray();
        for (const CodableColor& c : b.gradient->colors)
            write(w, c);
        w.endArray();
        if (b.gradient->preset) {
            w.key("preset");
            w.plain(rawValue(*b.gradient->preset).toStdString());
        }
        w.endObject();
    }
    if (b.imageURL) {
        w.key("imageURL");
        w.text(b.imageURL->toString(QUrl::FullyEncoded));
    }
    w.key("opacity");
    w.number(b.opacity, "opacity");
    w.key("type");
    w.plain(rawValue(b.type).toStdString());
    w.endObject();
}

void write(PrettyWriter& w, const CameraKeyframe& k) {
    w.beginObject();
    w.key("easing");
    w.plain(rawValue(k.easing).toStdString());
    w.key("frame");
    w.beginArray();
    w.point(k.frame.origin.x, k.frame.origin.y, "frame");
    w.point(k.frame.size.width, k.frame.size.height, "frame");
    w.endArray();
    w.key("id");
    w.plain(uuidString(k.id));
    w.key("timestamp");
    w.number(k.timestamp, "timestamp");
    w.endObject();
}

void write(PrettyWriter& w, const CursorClick& c) {
    w.beginObject();
    w.key("clickType");
    w.plain(rawValue(c.clickType).toStdString());
    w.key("id");
    w.plain(uuidString(c.id));
    w.key("position");
    w.point(c.position.x, c.position.y, "position");
    w.key("timestamp");
    w.number(c.timestamp, "timestamp");
    w.endObject();
}

void write(PrettyWriter& w, const CursorPosition& p) {
    w.beginObject();
    w.key("id");
    w.plain(uuidString(p.id));
    w.key("position");
    w.point(p.position.x, p.position.y, "position");
    w.key("timestamp");
    w.number(p.timestamp, "timestamp");
    w.endObject();
}

void write(PrettyWriter& w, const ZoomEvent& e) {
    w.beginObject();
    w.key("duration");
    w.number(e.duration, "duration");
    w.key("easing");
    w.plain(rawValue(e.easing).toStdString());
    w.key("id");
    w.plain(uuidString(e.id));
    w.key("level");
    w.number(e.level, "level");
    w.key("position");
    w.point(e.position.x, e.position.y, "position");
    w.key("timestamp");
    w.number(e.timestamp, "timestamp");
    w.endObject();
}

void write(PrettyWriter& w, const ZoomKeyframe& k) {
    w.beginObject();
    w.key("center");
    w.point(k.center.x, k.center.y, "center");
    w.key("easeIn");
    w.number(k.easeIn, "easeIn");
    w.key("easeOut");
    w.number(k.easeOut, "easeOut");
    w.key("easing");
    w.plain(rawValue(k.easing).toStdString());
    w.key("id");
    w.plain(uuidString(k.id));
    w.key("level");
    w.number(k.level, "level");
    w.key("time");
    w.number(k.time, "time");
    w.endObject();
}

void write(PrettyWriter& w, const ZoomSegment& s) {
    w.beginObject();
    if (s.attentionKind) {
        w.key("attentionKind");
        w.text(*s.attentionKind);
    }
    if (s.autoReason) {
        w.key("autoReason");
        w.text(*s.autoReason);
    }
    w.key("deadZone");
    w.number(s.deadZone, "deadZone");
    w.key("easeIn");
    w.number(s.easeIn, "easeIn");
    w.key("easeOut");
    w.number(s.easeOut, "easeOut");
    w.key("easing");
    w.plain(rawValue(s.easing).toStdString());
    w.key("endTime");
    w.number(s.endTime, "endTime");
    if (s.focusPoint) {
        w.key("focusPoint");
        w.point(s.focusPoint->x, s.focusPoint->y, "focusPoint");
    }
    w.key("followCursor");
    w.boolean(s.followCursor);
    w.key("id");
    w.plain(uuidString(s.id));
    w.key("mode");
    w.plain(rawValue(s.mode).toStdString());
    w.key("panSmoothing");
    w.number(s.panSmoothing, "panSmoothing");
    w.key("startTime");
    w.number(s.startTime, "startTime");
    w.key("zoomLevel");
    w.number(s.zoomLevel, "zoomLevel");
    w.endObject();
}

template <typename T>
void writeArray(PrettyWriter& w, std::string_view name, const std::vector<T>& values) {
    w.key(name);
    w.beginArray();
    for (const T& value : values)
        write(w, value);
    w.endArray();
}

} // namespace

std::string writeMetadataText(const RecordingMetadata& m) {
    // About 190 bytes per cursor sample, the bulk of any document.
    PrettyWriter w(4096 + m.cursorPositions.size() * 200 + m.cursorClicks.size() * 230);
    w.beginObject();
    if (m.backgroundSettings) {
        w.key("backgroundSettings");
        write(w, *m.backgroundSettings);
    }
    writeArray(w, "cameraPositions", m.cameraPositions);
    writeArray(w, "cursorClicks", m.cursorClicks);
    writeArray(w, "cursorPositions", m.cursorPositions);
    w.key("duration");
    w.number(m.duration, "duration");
    w.key("frameRate");
    w.integer(m.frameRate);
    w.key("resolution");
    w.point(m.resolution.width, m.resolution.height, "resolution");
    w.key("version");
    w.plain(RecordingMetadata::version);
    writeArray(w, "zoomEvents", m.zoomEvents);
    writeArray(w, "zoomKeyframes", m.zoomKeyframes);
    writeArray(w, "zoomSegments", m.zoomSegments);
    w.endObject();
    return w.take();
}
