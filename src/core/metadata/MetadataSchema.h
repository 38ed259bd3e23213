#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <algorithm>
#include <concepts>
#include <type_traits>

// The fields of every object in the metadata document, each list in the order of its keys: the
// writer (MetadataWriter.cpp) emits them in this order, which makes the file's keys sorted, and
// the reader (MetadataJson.cpp) looks each one up by name. A new field is one line here.
//
// `metadataFields(visitor, value)` calls, once per field, one of
//   visitor.required(key, member)           written always; reading fails without the key
//   visitor.optional(key, member)           a std::optional: no key when absent; an absent key
//                                           or a null reads as absent
//   visitor.defaulted(key, member, value)   written always; documents from before the field
//                                           existed read as `value` (as does a null)
//   visitor.constant(key, text)             written always, never read
// `value` is const for the writer and mutable for the reader. After an object's fields are read,
// `afterReading(value)` brings it to the form the rest of the program relies on.
//
// Thread: any; these only describe.

template <typename T, typename Plain>
concept MetadataValueOf = std::same_as<std::remove_const_t<T>, Plain>;

template <typename Visitor, MetadataValueOf<CodableColor> T>
void metadataFields(Visitor& v, T& color) {
    v.required("alpha", color.alpha);
    v.required("blue", color.blue);
    v.required("green", color.green);
    v.required("red", color.red);
}

template <typename Visitor, MetadataValueOf<GradientSettings> T>
void metadataFields(Visitor& v, T& gradient) {
    v.required("angle", gradient.angle);
    v.required("colors", gradient.colors);
    v.optional("preset", gradient.preset);
}

template <typename Visitor, MetadataValueOf<BackgroundSettings> T>
void metadataFields(Visitor& v, T& background) {
    v.optional("color", background.color);
    v.optional("gradient", background.gradient);
    v.optional("imageURL", background.imageURL);
    v.required("opacity", background.opacity);
    v.required("type", background.type);
}

template <typename Visitor, MetadataValueOf<CameraKeyframe> T>
void metadataFields(Visitor& v, T& keyframe) {
    v.required("easing", keyframe.easing);
    v.required("frame", keyframe.frame);
    v.required("id", keyframe.id);
    v.required("timestamp", keyframe.timestamp);
}

template <typename Visitor, MetadataValueOf<CursorClick> T>
void metadataFields(Visitor& v, T& click) {
    v.required("clickType", click.clickType);
    v.required("id", click.id);
    v.required("position", click.position);
    v.required("timestamp", click.timestamp);
}

template <typename Visitor, MetadataValueOf<CursorPosition> T>
void metadataFields(Visitor& v, T& sample) {
    v.required("id", sample.id);
    v.required("position", sample.position);
    v.required("timestamp", sample.timestamp);
}

template <typename Visitor, MetadataValueOf<ZoomEvent> T>
void metadataFields(Visitor& v, T& event) {
    v.required("duration", event.duration);
    v.required("easing", event.easing);
    v.required("id", event.id);
    v.required("level", event.level);
    v.required("position", event.position);
    v.required("timestamp", event.timestamp);
}

template <typename Visitor, MetadataValueOf<ZoomKeyframe> T>
void metadataFields(Visitor& v, T& keyframe) {
    v.required("center", keyframe.center);
    v.required("easeIn", keyframe.easeIn);
    v.required("easeOut", keyframe.easeOut);
    v.required("easing", keyframe.easing);
    v.required("id", keyframe.id);
    v.required("level", keyframe.level);
    v.required("time", keyframe.time);
}

// The keys with defaults came after the first version of the format. None of the initialiser's
// limits apply when reading: a file keeps its values until a segment is edited.
template <typename Visitor, MetadataValueOf<ZoomSegment> T>
void metadataFields(Visitor& v, T& segment) {
    v.optional("attentionKind", segment.attentionKind);
    v.optional("autoReason", segment.autoReason);
    v.defaulted("deadZone", segment.deadZone, ZoomSegment::defaultDeadZone);
    v.required("easeIn", segment.easeIn);
    v.required("easeOut", segment.easeOut);
    v.required("easing", segment.easing);
    v.required("endTime", segment.endTime);
    v.optional("focusPoint", segment.focusPoint);
    v.defaulted("followCursor", segment.followCursor, false);
    v.required("id", segment.id);
    v.defaulted("mode", segment.mode, ZoomSegmentMode::manual);
    v.defaulted("panSmoothing", segment.panSmoothing, ZoomSegment::defaultPanSmoothing);
    v.required("startTime", segment.startTime);
    v.required("zoomLevel", segment.zoomLevel);
}

// The document's version is always written as the current one and never read: a document with
// another version string, or none, reads all the same.
template <typename Visitor, MetadataValueOf<RecordingMetadata> T>
void metadataFields(Visitor& v, T& metadata) {
    v.optional("backgroundSettings", metadata.backgroundSettings);
    v.required("cameraPositions", metadata.cameraPositions);
    v.required("cursorClicks", metadata.cursorClicks);
    v.required("cursorPositions", metadata.cursorPositions);
    v.required("duration", metadata.duration);
    v.required("frameRate", metadata.frameRate);
    v.required("resolution", metadata.resolution);
    v.constant("version", RecordingMetadata::version);
    v.required("zoomEvents", metadata.zoomEvents);
    v.required("zoomKeyframes", metadata.zoomKeyframes);
    v.required("zoomSegments", metadata.zoomSegments);
}

// Most objects are read as written.
template <typename T>
void afterReading(T&) {}

// A focus point outside the frame would aim the camera off the picture, and an automatic segment
// follows the cursor whatever the file says.
inline void afterReading(ZoomSegment& segment) {
    if (segment.focusPoint) {
        segment.focusPoint = Point{std::clamp(segment.focusPoint->x, 0.0, 1.0),
                                   std::clamp(segment.focusPoint->y, 0.0, 1.0)};
    }
    segment.followCursor = segment.followCursor || segment.mode == ZoomSegmentMode::auto_;
}

namespace metadata_schema_detail {
// Accepts any field, for telling described objects from plain values.
struct AnyFieldVisitor {
    void required(const char*, const auto&) {}
    void optional(const char*, const auto&) {}
    void defaulted(const char*, const auto&, const auto&) {}
    void constant(const char*, const auto&) {}
};
} // namespace metadata_schema_detail

// An object of the document (as opposed to a number, a string or a point).
template <typename T>
concept MetadataObject = requires(metadata_schema_detail::AnyFieldVisitor& visitor, T& value) {
    metadataFields(visitor, value);
};
