#pragma once

#include <QImage>
#include <QWidget>

// The trimmer's picture: the player's frame fitted into the widget on the dark canvas, drawn
// at the screen's pixel ratio.
//
// Main thread.
class PreviewWidget final : public QWidget {
    Q_OBJECT
public:
    explicit PreviewWidget(QWidget* parent = nullptr);
    void setFrame(const QImage& frame);
    const QImage& frame() const { return m_frame; }
    // Where the frame is drawn, in widget coordinates.
    QRectF frameRect() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage m_frame;
};
