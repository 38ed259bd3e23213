#pragma once

#include "app/trimmer/BoundControls.h"
#include "exporter/VideoTrimmerViewModel.h"

#include <QWidget>

#include <functional>
#include <vector>

class QLabel;
class QProgressBar;
class QPushButton;
class QTabWidget;
class QVBoxLayout;

// The trimmer's side panel: the look of the export (background, screen, camera, cursor), the
// selected zoom segment and the automatic zooms, and the export itself (aspect ratio, vertical
// stack, codec, quality, the export button with its progress in place, then the way to the file).
// It edits the session's own fields (the look, the zoom segments) and keeps no state of its own;
// each change goes through the window, which makes it undoable, saves it and redraws the preview.
//
// Main thread.
class TrimmerInspector final : public QWidget {
    Q_OBJECT
public:
    using EditRecorder = BoundControls::EditRecorder;

    // Puts a changed zoom segment back through the zoom track's editing rules.
    using ZoomUpdater = std::function<void(const ZoomSegment& segment)>;

    TrimmerInspector(VideoTrimmerViewModel& session, bool hasCamera, EditRecorder record,
                     ZoomUpdater updateZoom, QWidget* parent = nullptr);

    // Shows the session's values again, after an undo, a redo or a restore.
    void refresh();

    void setExporting(bool exporting);
    void setExportProgress(double progress);
    void showExportOutcome(const VideoTrimmerViewModel::ExportOutcome& outcome);
    // With parts marked for removal the export joins the rest, and a joined export keeps the
    // recording's shape and has no camera: the Export tab says so.
    void setHasRemovedParts(bool removed);
    // The zoom segment selected on the timeline, which the Zoom tab edits.
    void setSelectedZoom(std::optional<QUuid> id);

    QTabWidget& tabs() { return *m_tabs; }
    QPushButton& exportButton() { return *m_exportButton; }
    QPushButton& revealButton() { return *m_revealButton; }

signals:
    void exportRequested();
    void cancelRequested();

private:
    QWidget* addPage(const QString& title, QVBoxLayout*& layout);
    void addBackgroundPage();
    void addScreenPage();
    void addCameraPage();
    void addCursorPage();
    void addZoomPage();
    // The selected zoom segment as the session has it, if it still exists.
    std::optional<ZoomSegment> selectedZoom() const;
    void editSelectedZoom(const QString& text, int control,
                          const std::function<void(ZoomSegment&)>& change);
    void addExportPage();

    VideoTrimmerViewModel& m_session;
    bool m_hasCamera = false;
    BoundControls* m_controls = nullptr; // child of this
    ZoomUpdater m_updateZoom;
    std::optional<QUuid> m_selectedZoom;
    QWidget* m_zoomControls = nullptr;
    QLabel* m_zoomHint = nullptr;
    QTabWidget* m_tabs = nullptr;
    QPushButton* m_exportButton = nullptr;
    QPushButton* m_cancelButton = nullptr;
    QPushButton* m_revealButton = nullptr;
    QProgressBar* m_progress = nullptr;
    QLabel* m_exportStatus = nullptr;
    QLabel* m_mergeNote = nullptr;
    bool m_cancelling = false;
    QString m_lastExport;
};
