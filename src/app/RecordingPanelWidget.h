#pragma once

#include <QPoint>
#include <QWidget>

#include <optional>

class QLabel;
class QPushButton;

// The pill itself: a red dot, the status or running time, and the buttons. It only draws and
// reports clicks; FloatingRecordingPanel decides what it shows. Thread: main.
class RecordingPanelWidget final : public QWidget {
    Q_OBJECT
public:
    RecordingPanelWidget();

    void setStatus(const QString& text, bool recording, bool paused);
    // Which buttons the state offers: Cancel while starting, Pause/Resume and Stop after.
    void setStarting(bool starting);
    void setPaused(bool paused);

    QLabel* statusLabel() const { return m_status; }

signals:
    void pauseClicked();
    void stopClicked();
    void cancelClicked();
    void dragged(QPoint topLeft);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QLabel* m_status = nullptr;
    QPushButton* m_pause = nullptr;
    QPushButton* m_stop = nullptr;
    QPushButton* m_cancel = nullptr;
    bool m_recording = false;
    bool m_paused = false;
    std::optional<QPoint> m_dragOffset;
};
