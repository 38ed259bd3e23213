#pragma once

#include "app/SelectorWindow.h"

#include "core/model/CaptureSources.h"

#include <QTimer>

#include <vector>

class QComboBox;
class ThumbnailTile;

// "Select Screen": the displays as live thumbnails, refreshed every second, and how long to
// record before stopping on its own. Thread: main.
class ScreenSelector final : public SelectorWindow {
    Q_OBJECT
public:
    explicit ScreenSelector(std::vector<SCDisplay> displays, QWidget* parent = nullptr);

signals:
    void displayChosen(const SCDisplay& display, int autoStopMinutes);

protected:
    void confirm() override;

private:
    void refreshThumbnails();

    std::vector<SCDisplay> m_displays;
    std::vector<ThumbnailTile*> m_tiles;
    QComboBox* m_autoStop = nullptr;
    QTimer m_refresh;
};
