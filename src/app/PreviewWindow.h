#pragma once

#include "app/CardWindow.h"

class QLabel;

// The small window a finished recording lands in until the editor opens instead: its first
// picture, its name, and the ways on (open it, show it in its folder). Thread: main.
class PreviewWindow final : public CardWindow {
    Q_OBJECT
public:
    explicit PreviewWindow(const QString& videoPath, QWidget* parent = nullptr);

    const QString& videoPath() const { return m_videoPath; }

private:
    void loadThumbnail();

    QString m_videoPath;
    QLabel* m_picture = nullptr;
};
