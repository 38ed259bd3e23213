#include "app/trimmer/TrimmerAutosave.h"

#include "core/metadata/MetadataJson.h"
#include "core/support/Log.h"
#include "exporter/VideoTrimmerViewModel.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace {
constexpr int formatVersion = 1;

QString codecName(VideoCodecSettings::Codec codec) {
    return codec == VideoCodecSettings::Codec::hevc ? QStringLiteral("hevc")
                                                    : QStringLiteral("h264");
}

// The export's look beside the edits. The background travels in the metadata form with the
// zoom segments; the cursor in its own JSON form.
QJsonObject lookObject(const VideoTrimmerViewModel& session) {
    const VideoTrimmerViewModel::ExportStyle& style = session.exportStyle;
    const CameraExportSettings& camera = style.cameraSettings;
    QJsonObject look{
        {QStringLiteral("padding"), style.videoPadding},
        {QStringLiteral("cornerRadius"), style.videoCornerRadius},
        {QStringLiteral("aspect"), rawValue(style.outputAspectRatio)},
        {QStringLiteral("verticalStack"), style.verticalStack},
        {QStringLiteral("screenShadow"),
         QJsonArray{style.screenShadowOpacity, style.screenShadowRadius}},
        {QStringLiteral("cameraShadow"),
         QJsonArray{style.cameraShadowOpacity, style.cameraShadowRadius}},
        {QStringLiteral("camera"),
         QJsonObject{{QStringLiteral("shape"), rawValue(camera.shape)},
                     {QStringLiteral("center"),
                      QJsonArray{camera.centerNormalized.x, camera.centerNormalized.y}},
                     {QStringLiteral("width"), camera.widthFraction},
                     {QStringLiteral("shrink"), camera.shrinkFactor}}},
        {QStringLiteral("backgroundEnabled"), session.backgroundEnabled},
        {QStringLiteral("codec"), codecName(session.encoding.video.codec)},
        {QStringLiteral("cursor"),
         QJsonDocument::fromJson(
             QByteArray::fromStdString(nlohmann::json(session.cursorOverlaySettings).dump()))
             .object()}};
    if (session.encoding.tuning.constantRateFactor)
        look.insert(QStringLiteral("quality"), *session.encoding.tuning.constantRateFactor);
    return look;
}

// Values of the wrong kind keep what the session has.
void restoreLook(const QJsonObject& look, VideoTrimmerViewModel& session) {
    VideoTrimmerViewModel::ExportStyle& style = session.exportStyle;
    const auto number = [&look](const char* key, double& target) {
        const QJsonValue value = look.value(QLatin1String(key));
        if (value.isDouble())
            target = value.toDouble();
    };
    const auto pair = [&look](const char* key, double& first, double& second) {
        const QJsonArray values = look.value(QLatin1String(key)).toArray();
        if (values.size() == 2 && values[0].isDouble() && values[1].isDouble()) {
            first = values[0].toDouble();
            second = values[1].toDouble();
        }
    };
    number("padding", style.videoPadding);
    number("cornerRadius", style.videoCornerRadius);
    if (const auto aspect =
            outputAspectRatioFromRawValue(look.value(QStringLiteral("aspect")).toString()))
        style.outputAspectRatio = *aspect;
    style.verticalStack = look.value(QStringLiteral("verticalStack")).toBool(style.verticalStack);
    pair("screenShadow", style.screenShadowOpacity, style.screenShadowRadius);
    pair("cameraShadow", style.cameraShadowOpacity, style.cameraShadowRadius);
    const QJsonObject camera = look.value(QStringLiteral("camera")).toObject();
    CameraExportSettings& placement = style.cameraSettings;
    if (const auto shape =
            cameraShapeFromRawValue(camera.value(QStringLiteral("shape")).toString()))
        placement.shape = *shape;
    const QJsonArray center = camera.value(QStringLiteral("center")).toArray();
    if (center.size() == 2 && center[0].isDouble() && center[1].isDouble())
        placement.centerNormalized = {center[0].toDouble(), center[1].toDouble()};
    if (camera.value(QStringLiteral("width")).isDouble())
        placement.widthFraction = camera.value(QStringLiteral("width")).toDouble();
    if (camera.value(QStringLiteral("shrink")).isDouble())
        placement.shrinkFactor = camera.value(QStringLiteral("shrink")).toDouble();
    session.backgroundEnabled =
        look.value(QStringLiteral("backgroundEnabled")).toBool(session.backgroundEnabled);
    const QString codec = look.value(QStringLiteral("codec")).toString();
    if (codec == QLatin1String("hevc") || codec == QLatin1String("h264"))
        session.encoding.video.codec = codec == QLatin1String("hevc")
                                           ? VideoCodecSettings::Codec::hevc
                                           : VideoCodecSettings::Codec::h264;
    if (look.value(QStringLiteral("quality")).isDouble())
        session.encoding.tuning.constantRateFactor = look.value(QStringLiteral("quality")).toInt();
    // An encoding chosen in the panel is honoured even where packets could have been copied.
    if (codec == QLatin1String("hevc") || look.contains(QStringLiteral("quality")))
        session.allowPassthrough = false;
    if (look.contains(QStringLiteral("cursor"))) {
        try {
            session.cursorOverlaySettings =
                nlohmann::json::parse(QJsonDocument(look.value(QStringLiteral("cursor")).toObject())
                                          .toJson(QJsonDocument::Compact)
                                          .toStdString())
                    .get<CursorOverlaySettings>();
        } catch (const std::exception& error) {
            logLine("⚠️ Ignoring saved cursor settings: {}", error.what());
        }
    }
}
} // namespace

QString TrimmerAutosave::pathFor(const QString& movie) {
    const QFileInfo info(movie);
    // A package's screen movie is hidden inside it; its state lives in the package.
    if (info.fileName().startsWith(QLatin1Char('.')))
        return info.absoluteDir().filePath(QStringLiteral("trimmer.json"));
    return info.absoluteDir().filePath(QLatin1Char('.') + info.completeBaseName() +
                                       QStringLiteral(".trimmer.json"));
}

bool TrimmerAutosave::save(const VideoTrimmerViewModel& session, double playhead) {
    if (!session.fileURL())
        return false;
    QJsonArray cuts;
    for (const VideoSegment& segment : session.segments())
        cuts.append(QJsonObject{{QStringLiteral("start"), segment.startTimeInSeconds()},
                                {QStringLiteral("end"), segment.endTimeInSeconds()},
                                {QStringLiteral("removed"), segment.isMarkedForDeletion}});
    QJsonObject state{{QStringLiteral("version"), formatVersion},
                      {QStringLiteral("duration"), session.videoDuration().seconds()},
                      {QStringLiteral("playhead"), playhead},
                      {QStringLiteral("cuts"), cuts}};
    // The zoom segments in the recording metadata's own form, so that every field survives.
    RecordingMetadata zoom;
    zoom.duration = session.videoDuration().seconds();
    zoom.resolution = session.naturalSize();
    zoom.zoomSegments = session.zoomSegments;
    zoom.backgroundSettings = session.backgroundSettings;
    state.insert(QStringLiteral("look"), lookObject(session));
    try {
        state.insert(
            QStringLiteral("zoom"),
            QJsonDocument::fromJson(QByteArray::fromStdString(encodeMetadata(zoom))).object());
    } catch (const std::exception& error) {
        logLine("⚠️ Could not keep the zoom segments: {}", error.what());
    }
    QSaveFile file(pathFor(*session.fileURL()));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(state).toJson(QJsonDocument::Compact)) < 0 || !file.commit()) {
        logLine("⚠️ Could not keep the editing state at {}: {}", file.fileName().toStdString(),
                file.errorString().toStdString());
        return false;
    }
    return true;
}

std::optional<double> TrimmerAutosave::restore(VideoTrimmerViewModel& session) {
    if (!session.fileURL())
        return std::nullopt;
    QFile file(pathFor(*session.fileURL()));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QJsonObject state = QJsonDocument::fromJson(file.readAll()).object();
    const double duration = session.videoDuration().seconds();
    // State of another recording that once had this name, or of another format, is ignored.
    if (state.value(QStringLiteral("version")).toInt() != formatVersion ||
        std::abs(state.value(QStringLiteral("duration")).toDouble() - duration) > 0.01) {
        logLine("⚠️ Ignoring editing state that does not fit {}",
                file.fileName().toStdString());
        return std::nullopt;
    }
    const QJsonArray cuts = state.value(QStringLiteral("cuts")).toArray();
    session.restoreCutSegmentList(CutSegmentList{});
    // The cuts are made again where they were, then the same parts marked.
    for (const QJsonValue& cut : cuts) {
        const double start = cut.toObject().value(QStringLiteral("start")).toDouble();
        if (start > 0)
            session.splitSegment(start);
    }
    if (!cuts.isEmpty() && session.segments().empty()) {
        // One uncut segment, maybe marked: entering cut mode lays it over the whole recording.
        session.toggleCutMode();
        session.toggleCutMode();
    }
    const std::vector<VideoSegment> segments = session.segments();
    for (const QJsonValue& cut : cuts) {
        const QJsonObject object = cut.toObject();
        if (!object.value(QStringLiteral("removed")).toBool())
            continue;
        const double start = object.value(QStringLiteral("start")).toDouble();
        for (const VideoSegment& segment : segments) {
            if (std::abs(segment.startTimeInSeconds() - start) < 0.01)
                session.toggleSegment(segment.id);
        }
    }
    if (state.contains(QStringLiteral("zoom"))) {
        try {
            const RecordingMetadata saved =
                decodeMetadata(QJsonDocument(state.value(QStringLiteral("zoom")).toObject())
                                   .toJson()
                                   .toStdString());
            session.zoomSegments = saved.zoomSegments;
            if (saved.backgroundSettings)
                session.backgroundSettings = *saved.backgroundSettings;
        } catch (const std::exception& error) {
            logLine("⚠️ Ignoring saved zoom segments: {}", error.what());
        }
    }
    restoreLook(state.value(QStringLiteral("look")).toObject(), session);
    const double playhead = state.value(QStringLiteral("playhead")).toDouble();
    logLine("🔍 Restored {} cut segments from {}", session.segments().size(),
            file.fileName().toStdString());
    return std::clamp(playhead, 0.0, duration);
}
