#pragma once

#include "core/timeline/TimelineViewport.h"

#include <QUuid>
#include <QWidget>

#include <optional>
#include <vector>

// The trimmer's timeline, painted in one widget: the ruler, the zoom track with its segments,
// the video track with the cut segments and the waveform under them, and the playhead. A press
// and drag anywhere scrubs; a press on the video track also selects the cut segment there.
//
// Main thread.
class TimelineStrip final : public QWidget {
    Q_OBJECT
public:
    // A segment as the strip draws it: a zoom segment with its level, or a cut segment that
    // may be marked for removal.
    struct Bar {
        QUuid id;
        double start = 0.0;
        double end = 0.0;
        double zoomLevel = 1.0;
        bool removed = false;
    };

    explicit TimelineStrip(QWidget* parent = nullptr);

    void setDuration(double seconds);
    void setWaveform(std::vector<float> values);
    void setZoomSegments(std::vector<Bar> segments);
    // An empty list shows the whole recording as one segment.
    void setCutSegments(std::vector<Bar> segments);
    void setPlayhead(double seconds);
    double playhead() const { return m_playhead; }
    const std::optional<QUuid>& selectedSegment() const { return m_selected; }
    void setSelectedSegment(std::optional<QUuid> id);
    const std::optional<QUuid>& selectedZoomSegment() const { return m_selectedZoom; }
    void setSelectedZoomSegment(std::optional<QUuid> id);

    // What a press on a zoom segment grabs.
    enum class ZoomGrip { move, start, end };

    // Geometry, for painting and for tests that point at things.
    QRectF rulerRect() const;
    QRectF zoomTrackRect() const;
    QRectF videoTrackRect() const;
    double xForTime(double seconds) const;
    double timeForX(double x) const;
    // The part of the recording in view: Ctrl+wheel (or a pinch) zooms it around the pointer,
    // the wheel pans it, and it follows the playhead when that leaves it.
    const TimelineViewport& viewport() const { return m_viewport; }

    QSize sizeHint() const override { return {800, 136}; }

signals:
    void scrubbed(double seconds);
    void scrubEnded(double seconds);
    void segmentSelected(const QUuid& id);
    void zoomSegmentSelected(const QUuid& id);
    // A zoom segment's drag: `time` is where its start (move, start) or end (end) should go.
    void zoomDragStarted(const QUuid& id);
    void zoomDragged(const QUuid& id, TimelineStrip::ZoomGrip grip, double time);
    void zoomDragEnded(const QUuid& id);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    bool event(QEvent* event) override;

private:
    void paintRuler(QPainter& painter);
    void paintZoomTrack(QPainter& painter);
    void paintVideoTrack(QPainter& painter);
    void paintPlayhead(QPainter& painter);

    double m_duration = 0.0;
    TimelineViewport m_viewport;
    double m_playhead = 0.0;
    std::vector<float> m_waveform;
    std::vector<Bar> m_zoomSegments;
    std::vector<Bar> m_cutSegments;
    std::optional<QUuid> m_selected;
    std::optional<QUuid> m_selectedZoom;
    bool m_dragging = false;
    // The zoom segment being dragged, its grip, and how far from its start it was grabbed.
    struct ZoomDrag {
        QUuid id;
        ZoomGrip grip = ZoomGrip::move;
        double grabOffset = 0.0;
    };
    std::optional<ZoomDrag> m_zoomDrag;
};
