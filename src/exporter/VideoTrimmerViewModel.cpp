#include "exporter/VideoTrimmerViewModel.h"

#include "core/metadata/MetadataFile.h"
#include "core/metadata/MetadataJson.h"
#include "core/metadata/MetadataLocation.h"
#include "core/metadata/ZoomMigration.h"
#include "core/support/Log.h"
#include "exporter/ExportFileNames.h"
#include "media/export/VideoTrackReader.h"
#include "render/RoundedCameraCompositorSettings.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QTimer>

namespace {
// A single-file recording keeps its metadata hidden beside it as ".<name>.metadata.json".
ExportEncoding::FileType fileTypeOf(const QString& path) {
    return QFileInfo(path).suffix().toLower() == QLatin1String("mp4")
               ? ExportEncoding::FileType::mp4
               : ExportEncoding::FileType::mov;
}
} // namespace

VideoTrimmerViewModel::VideoTrimmerViewModel(QObject* parent) : QObject(parent) {}

// An export still running is cancelled and waited for: its callbacks point here.
VideoTrimmerViewModel::~VideoTrimmerViewModel() {
    m_export.reset();
}

BackgroundSettings VideoTrimmerViewModel::defaultBackgroundSettings() {
    BackgroundSettings settings;
    settings.type = StudioBackgroundType::gradient;
    GradientSettings gradient;
    gradient.colors = {CodableColor{0.1, 0.1, 0.15, 1.0}, CodableColor{0.2, 0.2, 0.3, 1.0}};
    gradient.angle = 45.0;
    gradient.preset = GradientPreset::purple;
    settings.gradient = gradient;
    settings.opacity = 1.0;
    return settings;
}

std::optional<QString> VideoTrimmerViewModel::loadVideo(const QString& path) {
    QString screen = path;
    m_packageURL.reset();
    if (QFileInfo(path).isDir()) {
        m_packageURL = QFileInfo(path).absoluteFilePath();
        screen = QDir(path).filePath(QStringLiteral(".screen.mov"));
    }
    std::string error;
    const auto reader = VideoTrackReader::open(screen.toStdString(), error);
    if (!reader || !reader->checkComplete(error)) {
        const QString reason = QFileInfo::exists(screen)
                                   ? QString::fromStdString(error)
                                   : screen + QStringLiteral(": no such file");
        return QStringLiteral("Failed to load asset: ") + reason;
    }
    m_fileURL = screen;
    m_videoDuration = reader->duration();
    m_naturalSize = {double(reader->width()), double(reader->height())};
    m_cuts = {};
    // A camera movie counts only when it holds something.
    const QFileInfo camera(QFileInfo(screen).absoluteDir().filePath(QStringLiteral(".camera.mov")));
    m_cameraURL.reset();
    if (camera.isFile() && camera.size() > 0)
        m_cameraURL = camera.absoluteFilePath();
    logLine("✅ Video is ready. Initializing UI.");
    loadMetadataIfAvailable();
    return std::nullopt;
}

void VideoTrimmerViewModel::loadMetadataIfAvailable() {
    if (!m_fileURL)
        return;
    const std::optional<QString> path = locateMetadataFile(*m_fileURL);
    if (!path)
        return;
    RecordingMetadata metadata;
    try {
        metadata = migrateZoomMetadata(readMetadataFile(*path));
    } catch (const std::exception& error) {
        logLine("⚠️ Failed to load metadata: {}", error.what());
        return;
    }
    m_metadata = metadata;
    zoomKeyframes = metadata.zoomKeyframes;
    zoomSegments = metadata.zoomSegments;
    if (!metadata.cursorPositions.empty())
        logLine("📍 Loaded {} cursor positions spanning {}s", metadata.cursorPositions.size(),
                formatDouble(metadata.cursorPositions.back().timestamp -
                             metadata.cursorPositions.front().timestamp));
    else
        logLine("⚠️ No cursor positions in metadata!");
    if (!metadata.cursorClicks.empty())
        logLine("🖱️ Loaded {} click events", metadata.cursorClicks.size());
    else
        logLine("⚠️ No click events in metadata!");
    logLine("🔍 Loaded {} zoom segments", metadata.zoomSegments.size());
}

void VideoTrimmerViewModel::toggleCutMode() {
    m_isCutMode = !m_isCutMode;
    if (m_isCutMode && m_cuts.isEmpty() && m_videoDuration > MediaTime::zero())
        m_cuts.reset(m_videoDuration);
}

bool VideoTrimmerViewModel::splitSegment(double seconds) {
    if (!(seconds > 0) || !(seconds < m_videoDuration.seconds()))
        return false;
    if (m_cuts.isEmpty())
        m_cuts.reset(m_videoDuration);
    const std::optional<int> count = m_cuts.split(MediaTime::fromSeconds(seconds, 600));
    if (count)
        logLine("✂️ Cut at {}s - now have {} segments", formatDouble(seconds), *count);
    return count.has_value();
}

void VideoTrimmerViewModel::toggleSegment(const QUuid& id) {
    m_cuts.toggleDeletion(id);
}

void VideoTrimmerViewModel::keepOnly(const std::vector<MediaTimeRange>& ranges) {
    m_cuts = CutSegmentList::keeping(ranges, m_videoDuration);
}

void VideoTrimmerViewModel::setExporting(bool exporting) {
    if (m_isExporting == exporting)
        return;
    m_isExporting = exporting;
    emit isExportingChanged(exporting);
}

void VideoTrimmerViewModel::setProgress(double progress) {
    if (m_exportProgress == progress)
        return;
    m_exportProgress = progress;
    emit exportProgressChanged(progress);
}

QString VideoTrimmerViewModel::namingSource() const {
    // A package's files are hidden inside it; its exports go beside the folder, named after it.
    if (m_packageURL)
        return *m_packageURL + QStringLiteral(".") + QFileInfo(*m_fileURL).suffix();
    return *m_fileURL;
}

QString VideoTrimmerViewModel::outputURL(ExportKind kind) const {
    if (outputURLOverride)
        return *outputURLOverride;
    QString path = exportOutputPath(kind, namingSource(), QDateTime::currentDateTime());
    // GIF is its own format, and ProRes exists only in QuickTime movies.
    const bool proRes = encoding.video.codec == VideoCodecSettings::Codec::proRes4444 ||
                        encoding.video.codec == VideoCodecSettings::Codec::proRes4444XQ;
    if (encoding.fileType == ExportEncoding::FileType::gif)
        path = path.left(path.lastIndexOf(QLatin1Char('.'))) + QStringLiteral(".gif");
    else if (proRes && kind == ExportKind::edited)
        path = path.left(path.lastIndexOf(QLatin1Char('.'))) + QStringLiteral(".mov");
    return path;
}

AdvancedExportArguments VideoTrimmerViewModel::baseArguments(const QString& output) const {
    AdvancedExportArguments arguments;
    arguments.screenAsset = m_fileURL->toStdString();
    arguments.outputURL = output.toStdString();
    arguments.cursorOverlaySettings = cursorOverlaySettings;
    arguments.encoding = encoding;
    arguments.allowPassthrough = allowPassthrough;
    arguments.frameDuration = frameDuration;
    return arguments;
}

void VideoTrimmerViewModel::start(AdvancedExportArguments arguments,
                                  std::function<void(ExportOutcome)> finish, double progressBase,
                                  double progressSpan) {
    setExporting(true);
    QPointer<VideoTrimmerViewModel> self(this);
    auto progress = [self, progressBase, progressSpan](double fraction) {
        const double value = progressBase + fraction * progressSpan;
        QMetaObject::invokeMethod(
            self, [self, value] { self ? self->setProgress(value) : void(); },
            Qt::QueuedConnection);
    };
    auto completion = [self, finish = std::move(finish)](AdvancedVideoExporter::Result result) {
        QMetaObject::invokeMethod(
            self,
            [self, finish, result] {
                if (!self)
                    return;
                self->m_export.reset();
                ExportOutcome outcome;
                if (result.url)
                    outcome.urls.push_back(QString::fromStdString(result.url->string()));
                else
                    outcome.error = QString::fromStdString(
                        result.error ? result.error->description() : "Export failed");
                finish(std::move(outcome));
            },
            Qt::QueuedConnection);
    };
    m_export = AdvancedVideoExporter::exportVideo(std::move(arguments), std::move(progress),
                                                  std::move(completion));
}

void VideoTrimmerViewModel::exportAdvancedVideo(const ExportStyle& style,
                                                ExportCompletion completion) {
    if (!m_fileURL) {
        completion({{}, QStringLiteral("No video loaded")});
        return;
    }
    if (!m_metadata) {
        RecordingMetadata minimal;
        minimal.duration = m_videoDuration.seconds();
        minimal.resolution = m_naturalSize;
        m_metadata = minimal;
    }
    m_metadata->zoomKeyframes = zoomKeyframes;
    m_metadata->zoomSegments = zoomSegments;
    AdvancedExportArguments arguments = styledExportArguments(style, outputURL(ExportKind::edited));
    if (arguments.encoding.fileType != ExportEncoding::FileType::gif)
        arguments.encoding.fileType = ExportEncoding::FileType::mp4;
    setProgress(0.0);
    start(std::move(arguments), [this, completion](ExportOutcome outcome) {
        setExporting(false);
        completion(std::move(outcome));
    });
}

AdvancedExportArguments VideoTrimmerViewModel::styledExportArguments(const ExportStyle& style,
                                                                     const QString& output) const {
    AdvancedExportArguments arguments = baseArguments(output);
    if (m_cameraURL)
        arguments.cameraAsset = m_cameraURL->toStdString();
    RecordingMetadata metadata = m_metadata.value_or(RecordingMetadata{});
    if (!m_metadata) {
        metadata.duration = m_videoDuration.seconds();
        metadata.resolution = m_naturalSize;
    }
    metadata.zoomKeyframes = zoomKeyframes;
    metadata.zoomSegments = zoomSegments;
    arguments.metadata = metadata;
    arguments.cameraSettings = style.cameraSettings;
    arguments.backgroundSettings =
        backgroundEnabled ? std::optional(backgroundSettings) : std::nullopt;
    arguments.backgroundEnabled = backgroundEnabled;
    arguments.videoPadding = style.videoPadding;
    arguments.videoCornerRadius = style.videoCornerRadius;
    arguments.outputAspectRatio = style.outputAspectRatio;
    arguments.verticalStack = style.verticalStack;
    arguments.screenShadowOpacity = style.screenShadowOpacity;
    arguments.screenShadowRadius = style.screenShadowRadius;
    arguments.cameraShadowOpacity = style.cameraShadowOpacity;
    arguments.cameraShadowRadius = style.cameraShadowRadius;
    return arguments;
}

void VideoTrimmerViewModel::exportMergedVideo(const ExportStyle& style,
                                              ExportCompletion completion) {
    if (!m_fileURL) {
        completion({{}, QStringLiteral("Missing video data")});
        return;
    }
    const std::vector<VideoSegment> active = m_cuts.activeSegments();
    if (active.empty()) {
        completion({{}, QStringLiteral("No active segments to export")});
        return;
    }
    const QString output = outputURL(ExportKind::merged);
    AdvancedExportArguments arguments = baseArguments(output);
    for (const VideoSegment& segment : active)
        arguments.timeRanges.push_back(segment.timeRange());
    RecordingMetadata metadata = m_metadata.value_or(RecordingMetadata{});
    metadata.zoomSegments = zoomSegments;
    arguments.metadata = metadata;
    arguments.cameraSettings = defaultCameraExportSettings;
    arguments.backgroundSettings = backgroundSettings;
    arguments.backgroundEnabled = backgroundEnabled;
    arguments.videoPadding = style.videoPadding;
    arguments.videoCornerRadius = style.videoCornerRadius;
    arguments.screenShadowOpacity = style.screenShadowOpacity;
    arguments.screenShadowRadius = style.screenShadowRadius;
    arguments.cameraShadowOpacity = style.cameraShadowOpacity;
    arguments.cameraShadowRadius = style.cameraShadowRadius;
    arguments.alwaysCompose = true;
    if (arguments.encoding.fileType != ExportEncoding::FileType::gif)
        arguments.encoding.fileType = fileTypeOf(output);
    if (AdvancedVideoExporter::needsCustomCompositor(arguments))
        logLine("🎨 Setting up custom compositor for merged export");
    logLine("🚀 Starting merged export to {}", output.toStdString());
    setProgress(0.0);
    start(std::move(arguments), [this, completion](ExportOutcome outcome) {
        setExporting(false);
        setProgress(1.0);
        if (!outcome.error)
            logLine("✅ Merged video exported successfully");
        completion(std::move(outcome));
    });
}

void VideoTrimmerViewModel::exportTrimmedVideo(MediaTimeRange range, ExportCompletion completion) {
    if (!m_fileURL) {
        completion({{}, QStringLiteral("Missing required data")});
        return;
    }
    const QString output = outputURL(ExportKind::trimmed);
    AdvancedExportArguments arguments = baseArguments(output);
    arguments.timeRanges = {range};
    arguments.cursorOverlaySettings.enabled = false;
    arguments.encoding.fileType = fileTypeOf(output);
    setProgress(0.0);
    start(std::move(arguments), [this, completion](ExportOutcome outcome) {
        setExporting(false);
        setProgress(1.0);
        if (!outcome.error) {
            const QString url = outcome.urls.front();
            logLine("Trimmed video exported successfully to: {}", url.toStdString());
            QPointer<VideoTrimmerViewModel> self(this);
            QTimer::singleShot(300, this, [self, url] {
                if (self)
                    emit self->videoTrimmerExportSuccess(url);
            });
        }
        completion(std::move(outcome));
    });
}

void VideoTrimmerViewModel::exportSegments(ExportCompletion completion) {
    if (!m_fileURL) {
        completion({{}, QStringLiteral("Missing video data")});
        return;
    }
    std::vector<VideoSegment> active = m_cuts.activeSegments();
    if (active.empty()) {
        completion({{}, QStringLiteral("No segments to export")});
        return;
    }
    setExporting(true);
    setProgress(0.0);
    exportSegmentsRecursively(std::move(active), 0, {}, std::move(completion));
}

void VideoTrimmerViewModel::exportSegmentsRecursively(std::vector<VideoSegment> segments,
                                                      size_t index, std::vector<QString> exported,
                                                      ExportCompletion completion) {
    if (index >= segments.size()) {
        setProgress(1.0);
        setExporting(false);
        completion({std::move(exported), std::nullopt});
        return;
    }
    const double base = double(index) / double(segments.size());
    setProgress(base);
    const QString output =
        segmentOutputPath(outputURLOverride.value_or(namingSource()), int(index) + 1);
    AdvancedExportArguments arguments = baseArguments(output);
    arguments.timeRanges = {segments[index].timeRange()};
    arguments.cursorOverlaySettings.enabled = false;
    arguments.encoding.fileType = fileTypeOf(output);
    start(
        std::move(arguments),
        [this, segments, index, exported, completion, output](ExportOutcome outcome) mutable {
            if (outcome.error) {
                setExporting(false);
                completion({std::move(exported), outcome.error});
                return;
            }
            logLine("✅ Segment {} exported to: {}", index + 1,
                    QFileInfo(output).fileName().toStdString());
            exported.push_back(output);
            exportSegmentsRecursively(std::move(segments), index + 1, std::move(exported),
                                      std::move(completion));
        },
        base, 1.0 / double(segments.size()));
}

void VideoTrimmerViewModel::cancelExport() {
    if (m_export)
        m_export->cancel();
    setExporting(false);
    setProgress(0.0);
}
