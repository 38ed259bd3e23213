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

#include <algorithm>
#include <cmath>

namespace {
constexpr int formatVersion = 1;
}

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
            session.zoomSegments =
                decodeMetadata(QJsonDocument(state.value(QStringLiteral("zoom")).toObject())
                                   .toJson()
                                   .toStdString())
                    .zoomSegments;
        } catch (const std::exception& error) {
            logLine("⚠️ Ignoring saved zoom segments: {}", error.what());
        }
    }
    const double playhead = state.value(QStringLiteral("playhead")).toDouble();
    logLine("🔍 Restored {} cut segments from {}", session.segments().size(),
            file.fileName().toStdString());
    return std::clamp(playhead, 0.0, duration);
}
