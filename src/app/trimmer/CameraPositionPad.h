#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CameraExportSettings.h"

#include <QWidget>

// A small picture of the output with the camera on it: dragging the camera places it. The
// position is the camera's centre, normalised with the origin at the top left, as the export
// reads it. Main thread.
class CameraPositionPad final : public QWidget {
    Q_OBJECT
public:
    explicit CameraPositionPad(QWidget* parent = nullptr);

    void setPlacement(const CameraExportSettings& placement);
    // Where the camera's centre lands for a press at `point` in the pad.
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
};
