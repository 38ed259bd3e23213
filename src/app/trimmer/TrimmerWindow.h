#pragma once

#include "exporter/VideoTrimmerViewModel.h"

#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class PreviewWidget;
class QLabel;
class QPushButton;
class QSlider;
class QUndoStack;
class ZoomSegmentEditor;
class TimelineStrip;
class TrimmerInspector;
class TrimmerPlayer;

// The editor of one finished recording: the preview of the styled result (or the plain
// recording), the transport, a scrubber, the timeline with its zoom and cut segments, and the
// export with its progress. It binds to the recording's editing session, the same object the
// command line's export drives.
//
// Main thread.
class TrimmerWindow final : public QWidget {
    Q_OBJECT
public:
    // A window on the movie or package at `path`, or nothing with a sentence saying why.
    static std::unique_ptr<TrimmerWindow> open(const QString& path, QString& error);
    // As `open`; a failure is shown in a dialog and gives nothing.
    static TrimmerWindow* openOrExplain(const QString& path, QWidget* dialogParent = nullptr);
    ~TrimmerWindow() override;

    VideoTrimmerViewModel& session() { return *m_session; }
    TrimmerPlayer& player() { return *m_player; }
    PreviewWidget& preview() { return *m_preview; }
    TimelineStrip& timeline() { return *m_timeline; }
    QSlider& scrubber() { return *m_scrubber; }
    QUndoStack& undoStack() { return *m_undoStack; }
    // The look the preview shows and an export writes.
    const VideoTrimmerViewModel::ExportStyle& style() const { return m_session->exportStyle; }
    TrimmerInspector& inspector() { return *m_inspector; }

    // Segment edits at the playhead and on the selected segment, as their keys do them.
    bool splitAtPlayhead();
    bool toggleSelectedSegment();
    // Zoom segments, through the editing rules of the zoom track.
    bool addZoomAtPlayhead();
    bool deleteSelectedZoom();
    void startExport();

signals:
    // Every export's end: the files written, or the error.
    void exportFinished(const VideoTrimmerViewModel::ExportOutcome& outcome);

private:
    TrimmerWindow(std::unique_ptr<VideoTrimmerViewModel> session,
                  std::unique_ptr<TrimmerPlayer> player, Size cameraNaturalSize);
    void buildInterface();
    void bindShortcuts();
    void refreshSegments();
    void refreshTime();
    void pushStyleToPreview();
    void loadWaveformInBackground();
    // Runs `edit` on the session and, when it changed something, records it for undo.
    bool recordEdit(const QString& text, const std::function<bool()>& edit);
    // Runs a change from the inspector (the export's look, the selected zoom) and records it
    // when it changed something.
    void recordLookEdit(const QString& text, int mergeId, const std::function<void()>& edit);
    // The zoom rules work on a document: it is given the session's segments before each edit.
    ZoomSegmentEditor& zoomEditor();
    void editsChanged();

    std::unique_ptr<VideoTrimmerViewModel> m_session;
    std::unique_ptr<TrimmerPlayer> m_player;
    Size m_cameraNaturalSize{0.0, 0.0};
    PreviewWidget* m_preview = nullptr;
    TimelineStrip* m_timeline = nullptr;
    QSlider* m_scrubber = nullptr;
    QLabel* m_timeLabel = nullptr;
    QLabel* m_statusLabel = nullptr;
    QPushButton* m_playButton = nullptr;
    QPushButton* m_styledButton = nullptr;
    TrimmerInspector* m_inspector = nullptr;
    bool m_scrubbing = false;
    QUndoStack* m_undoStack = nullptr;
    std::unique_ptr<ZoomSegmentEditor> m_zoomEditor;
    // The segments when a zoom drag began, for its undo.
    std::vector<ZoomSegment> m_zoomBeforeDrag;
    bool m_zoomSelectedLast = false;
};
