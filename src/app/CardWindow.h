#pragma once

#include <QPoint>
#include <QWidget>

#include <optional>

// A frameless, rounded dark window that moves when dragged by its background: the shape of the
// main window, the selectors, settings and the preview. Thread: main.
class CardWindow : public QWidget {
    Q_OBJECT
public:
    // `flags` adds to the frameless window flags (Qt::Tool, Qt::WindowStaysOnTopHint).
    explicit CardWindow(QWidget* parent = nullptr, Qt::WindowFlags flags = {});

signals:
    // The window was dragged to a new place by the person.
    void moved(QPoint topLeft);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    std::optional<QPoint> m_dragOffset;
};
