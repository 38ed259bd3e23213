#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CameraExportSettings.h"

#include <QWidget>

// A small picture of the output with a marker on it, the camera or a zoom's focus: dragging
// places it. The position is the marker's centre, normalised with the origin at the top left,
// as the export reads it. Main thread.
class PlacementPad final : public QWidget {
    Q_OBJECT
public:
    explicit PlacementPad(QWidget* parent = nullptr);

    // The marker as the camera would be drawn: its centre, width fraction and shape.
    void setPlacement(const CameraExportSettings& placement);
    // Width over height of the marker: 1 for the camera, the output's own for a zoom's view.
    void setMarkerAspect(double widthOverHeight);
    // Where the marker's centre lands for a press at `point` in the pad.
    Point normalizedAt(QPointF point) const;
    QRectF canvasRect() const;

    QSize sizeHint() const override { return {240, 135}; }

signals:
    void dragStarted();
    void moved(Point centerNormalized);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    CameraExportSettings m_placement;
    double m_markerAspect = 1.0;
};
