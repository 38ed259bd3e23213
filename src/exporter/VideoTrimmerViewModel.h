#pragma once

#include "core/cursor/CursorOverlaySettings.h"
#include "core/editing/CutSegmentList.h"
#include "core/metadata/BackgroundSettings.h"
#include "core/metadata/CameraExportSettings.h"
#include "core/metadata/RecordingMetadata.h"
#include "core/model/OutputAspectRatio.h"
#include "exporter/AdvancedVideoExporter.h"
#include "exporter/ExportFileNames.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// The editing session of one recording: the loaded movie (a file, or the screen movie of a
// recording package), its metadata with the zoom brought to segments, the camera movie beside
// it, the cursor and background settings of the export, the cut segments, and the exports with
// their progress. The command line drives it without a window; the trimmer window binds to the
// same object and adds its player.
//
// Main thread: every operation and every completion; exports run on threads of their own and
// report back through the event loop.
class VideoTrimmerViewModel final : public QObject {
    Q_OBJECT
public:
    struct ExportOutcome {
        std::vector<QString> urls; // one file, or one per segment
        std::optional<QString> error;
    };
    using ExportCompletion = std::function<void(ExportOutcome)>;

    // The look of a styled export, as the editor's panel sets it.
    struct ExportStyle {
        CameraExportSettings cameraSettings = defaultCameraExportSettings;
        double videoPadding = 120.0;
        double videoCornerRadius = 28.0;
        OutputAspectRatio outputAspectRatio = OutputAspectRatio::original;
        bool verticalStack = false;
        double screenShadowOpacity = 0.4;
        double screenShadowRadius = 30.0;
        double cameraShadowOpacity = 0.4;
        double cameraShadowRadius = 12.0;
        bool operator==(const ExportStyle&) const = default;
    };

    explicit VideoTrimmerViewModel(QObject* parent = nullptr);
    ~VideoTrimmerViewModel() override;

    // Opens a movie, or a package folder's screen movie; then the metadata and the camera movie
    // beside it. The error ("Failed to load asset: ...") names the file.
    std::optional<QString> loadVideo(const QString& path);
    void loadMetadataIfAvailable();

    const std::optional<QString>& fileURL() const { return m_fileURL; }
    const std::optional<QString>& cameraURL() const { return m_cameraURL; }
    void setCameraURL(std::optional<QString> url) { m_cameraURL = std::move(url); }
    MediaTime videoDuration() const { return m_videoDuration; }
    Size naturalSize() const { return m_naturalSize; }
    const std::optional<RecordingMetadata>& metadata() const { return m_metadata; }
    std::vector<ZoomSegment> zoomSegments;
    std::vector<ZoomKeyframe> zoomKeyframes;

    // The look the editor's panel sets and its exports use, beside the cursor and background.
    ExportStyle exportStyle;
    CursorOverlaySettings cursorOverlaySettings;
    BackgroundSettings backgroundSettings = defaultBackgroundSettings();
    bool backgroundEnabled = false;
    // Beyond the editor's panel: how the command line wants the file encoded.
    ExportEncoding encoding;
    bool allowPassthrough = true;
    MediaTime frameDuration = MediaTime::make(1, 60);
    // Instead of the name beside the source; per-part files are named after it.
    std::optional<QString> outputURLOverride;

    // Cut segments.
    bool isCutMode() const { return m_isCutMode; }
    void toggleCutMode();
    bool splitSegment(double seconds);
    void toggleSegment(const QUuid& id);
    const std::vector<VideoSegment>& segments() const { return m_cuts.segments(); }
    double totalActiveDuration() const { return m_cuts.totalActiveDuration(); }
    // The whole list, for an editor that undoes and redoes edits by putting back a copy.
    const CutSegmentList& cutSegmentList() const { return m_cuts; }
    void restoreCutSegmentList(CutSegmentList cuts) { m_cuts = std::move(cuts); }
    // Keeps exactly these source ranges (merged where they overlap).
    void keepOnly(const std::vector<MediaTimeRange>& ranges);

    bool isExporting() const { return m_isExporting; }
    double exportProgress() const { return m_exportProgress; }

    void exportAdvancedVideo(const ExportStyle& style, ExportCompletion completion);
    // What `exportAdvancedVideo` would export to `output` with this style and the current edits;
    // the editor's preview composes its frames from the same arguments.
    AdvancedExportArguments styledExportArguments(const ExportStyle& style,
                                                  const QString& output = {}) const;
    void exportMergedVideo(const ExportStyle& style, ExportCompletion completion);
    void exportSegments(ExportCompletion completion);
    void exportTrimmedVideo(MediaTimeRange range, ExportCompletion completion);
    void cancelExport();

    static BackgroundSettings defaultBackgroundSettings();

signals:
    void isExportingChanged(bool isExporting);
    void exportProgressChanged(double progress);
    // In-process notice of a finished trim ("VideoTrimmerExportSuccess" with its "url").
    void videoTrimmerExportSuccess(const QString& url);

private:
    AdvancedExportArguments baseArguments(const QString& output) const;
    // Progress of this export maps to [progressBase, progressBase + progressSpan].
    void start(AdvancedExportArguments arguments, std::function<void(ExportOutcome)> finish,
               double progressBase = 0.0, double progressSpan = 1.0);
    void setExporting(bool exporting);
    void setProgress(double progress);
    void exportSegmentsRecursively(std::vector<VideoSegment> segments, size_t index,
                                   std::vector<QString> exported, ExportCompletion completion);
    QString namingSource() const;
    QString outputURL(ExportKind kind) const;

    std::optional<QString> m_fileURL;
    std::optional<QString> m_packageURL;
    std::optional<QString> m_cameraURL;
    MediaTime m_videoDuration = MediaTime::zero();
    Size m_naturalSize{0.0, 0.0};
    std::optional<RecordingMetadata> m_metadata;
    CutSegmentList m_cuts;
    bool m_isCutMode = false;
    bool m_isExporting = false;
    double m_exportProgress = 0.0;
    std::unique_ptr<AdvancedVideoExporter::Export> m_export;
};
