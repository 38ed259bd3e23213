#pragma once

#include "core/model/CaptureSources.h"

#include <QPixmap>
#include <QWidget>

#include <optional>
#include <vector>

class QPushButton;
class UserDefaults;

// "Select Area": a full-screen overlay over a still of the display, on which a rectangle is
// dragged out, moved and resized by its handles, with its size shown. The last area is kept as
// "savedArea" and offered again. Enter or Record confirms, Escape cancels. Thread: main.
class AreaSelector final : public QWidget {
    Q_OBJECT
public:
    AreaSelector(std::vector<SCDisplay> displays, UserDefaults& defaults,
                 QWidget* parent = nullptr);

    // The chosen rectangle in the overlay's (the display's) top-left points.
    QRect selection() const { return m_selection; }
    void setSelection(const QRect& rect);

signals:
    // `rect` counts from the display's bottom left, as a recording's area does.
    void areaChosen(const SCDisplay& display, const Rect& rect);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    enum class Drag { none, create, move, resize };
    // Which edges a resize moves: bits of Qt::Edge.
    Qt::Edges edgesAt(QPoint point) const;
    void confirm();
    void placeToolbar();

    std::optional<SCDisplay> m_display;
    UserDefaults& m_defaults;
    QPixmap m_still;
    QRect m_selection;
    Drag m_drag = Drag::none;
    Qt::Edges m_edges;
    QPoint m_anchor;
    QRect m_startSelection;
    QWidget* m_toolbar = nullptr;
    QPushButton* m_record = nullptr;
};
